// The one HTTP client of the camera link: a single libcurl handle kept for the process,
// so that the connection, TLS session and cookies carry over between the many small
// requests. It starts with plain HTTP and switches scheme when a connection is refused or
// the camera redirects; callers see only the status and the body. Main loop only: every
// request blocks until it is done.
#pragma once

#include <glib.h>

#include <cstddef>
#include <cstdint>

// A camera that stops answering holds one request (and so the main loop) for at most
// this long, over all its passes (scheme switch, redirects).
inline constexpr long http_request_budget_ms = 4000;
// Redirects followed within one request; the next 302 ends it.
inline constexpr int http_max_redirects = 2;
// A reply body larger than this is a broken camera; the transfer is abandoned.
inline constexpr size_t http_max_body_bytes = 1 << 20;

// Sets host, ports and credentials for the following requests, and creates the handle
// the first time. 0, or -1 when the handle could not be made or configured.
int http_setup(const char *address, const char *http_port, const char *https_port, const char *user,
               const char *password);
// Destroys the handle (and with it the connection and cookies). Host and ports stay.
void http_cleanup(void);
// The time limit of a pass that starts at now_us in a request that started at started_us:
// what is left of the budget, and never less than 1 ms, since 0 would be no limit at all.
long http_pass_timeout_ms(int64_t started_us, int64_t now_us);
// GET of path (relative, query included). The final HTTP status, or 0 when no transfer
// completed. A non-empty body goes to *body (the caller frees it) when body is not NULL;
// an empty body leaves *body as it was.
long http_request(const char *path, gchar **body);
