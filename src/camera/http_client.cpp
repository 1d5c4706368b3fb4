#include "http_client.h"

#include "clock.h"
#include "log.h"

#include <curl/curl.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr const char *http_interface = "eth0";
constexpr long http_connect_timeout_ms = 2000;

struct HttpClient {
        gchar *host;
        gchar *http_port;
        gchar *https_port;
        gboolean use_https;
        CURL *handle;
        GString *response; // the body of the pass under way
        gboolean warn_no_address = TRUE;
};

HttpClient http; // file-level, so it starts zeroed: only non-zero starts are written

size_t http_write_cb(char *data, size_t size, size_t count, void *)
{
        const size_t n = size * count;
        if (!http.response)
                http.response = g_string_sized_new(n);
        if (http.response->len + n > http_max_body_bytes)
                return 0; // libcurl ends the transfer with a write error
        g_string_append_len(http.response, data, static_cast<gssize>(n));
        return n;
}

void http_forget_response(void)
{
        if (http.response)
                g_string_free(http.response, TRUE);
        http.response = nullptr;
}

template <typename T>
bool http_setopt(CURLoption option, T value)
{
        const CURLcode result = curl_easy_setopt(http.handle, option, value);
        if (result != CURLE_OK)
                log_error("%scurl setopt: %s", curl_easy_strerror(result));
        return result == CURLE_OK;
}

// %m: the C library's text for errno, a GNU extension the pedantic format check refuses.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
bool http_configure_handle(void)
{
        const unsigned int index = if_nametoindex(http_interface);
        if (index == 0) {
                log_error("%sGet index for interface %s: %m", http_interface);
                return false;
        }
        return http_setopt(CURLOPT_ADDRESS_SCOPE, static_cast<long>(index)) &&
               http_setopt(CURLOPT_SSL_VERIFYPEER, 0L) && http_setopt(CURLOPT_SSL_VERIFYHOST, 0L) &&
               http_setopt(CURLOPT_COOKIEFILE, "") && http_setopt(CURLOPT_CONNECTTIMEOUT_MS, http_connect_timeout_ms) &&
               http_setopt(CURLOPT_WRITEFUNCTION, http_write_cb) &&
               // Signals are no way to time out a lookup in a process with threads.
               http_setopt(CURLOPT_NOSIGNAL, 1L);
}
#pragma GCC diagnostic pop

// Starts one pass of a request; false when its URL was refused.
bool http_set_url(const char *path)
{
        const char *scheme = http.use_https ? "https" : "http";
        const char *port = http.use_https ? http.https_port : http.http_port;
        gchar *url = g_strdup_printf("%s://%s:%s/%s", scheme, http.host, port ? port : "", path);
        const bool ok = http_setopt(CURLOPT_URL, url);
        g_free(url);
        return ok;
}


} // namespace

long http_pass_timeout_ms(int64_t started_us, int64_t now_us)
{
        const int64_t left = http_request_budget_ms - (now_us - started_us) / 1000;
        return static_cast<long>(std::max<int64_t>(left, 1));
}

int http_setup(const char *address, const char *http_port, const char *https_port, const char *user,
               const char *password)
{
        g_clear_pointer(&http.host, g_free);
        g_clear_pointer(&http.http_port, g_free);
        g_clear_pointer(&http.https_port, g_free);
        if (address && *address) {
                // An IPv6 literal goes into the URL in brackets.
                http.host = strchr(address, ':') ? g_strdup_printf("[%s]", address) : g_strdup(address);
                http.http_port = g_strdup(http_port);
                http.https_port = g_strdup(https_port);
        }
        http.use_https = FALSE;

        if (!http.handle) {
                http.handle = curl_easy_init();
                if (!http.handle) {
                        log_error("%scurl init failed");
                        return -1;
                }
                if (!http_configure_handle()) {
                        // A handle half set up would be taken as ready by the next set-up.
                        g_clear_pointer(&http.handle, curl_easy_cleanup);
                        return -1;
                }
        }
        if (!http_setopt(CURLOPT_USERNAME, user) || !http_setopt(CURLOPT_PASSWORD, password) ||
            !http_setopt(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_ANY)))
                return -1;
        return 0;
}

void http_cleanup(void)
{
        g_clear_pointer(&http.handle, curl_easy_cleanup);
}

long http_request(const char *path, gchar **body)
{
        if (!http.handle)
                return 0;
        if (!http.host) {
                if (http.warn_no_address) {
                        log_warning("%shttp: No address");
                        http.warn_no_address = FALSE;
                }
                return 0;
        }
        http.warn_no_address = TRUE;

        const int64_t started_us = clock_now_us();
        // A refused connection tries the other scheme, once, and not after a redirect.
        bool scheme_switched = false;
        int redirects = 0;
        long status; // read before every way out of the loop that returns it
        for (;;) {
                http_forget_response();
                const long timeout_ms = http_pass_timeout_ms(started_us, clock_now_us());
                if (!http_set_url(path) || !http_setopt(CURLOPT_TIMEOUT_MS, timeout_ms))
                        return 0;
                const CURLcode result = curl_easy_perform(http.handle);
                if (!scheme_switched && result == CURLE_COULDNT_CONNECT) {
                        http.use_https = !http.use_https;
                        scheme_switched = true;
                        continue;
                }
                if (result != CURLE_OK) {
                        if (result != CURLE_OPERATION_TIMEDOUT)
                                log_warning("%scurl perform: %s", curl_easy_strerror(result));
                        http.use_https = FALSE;
                        http_forget_response();
                        return 0;
                }
                curl_easy_getinfo(http.handle, CURLINFO_RESPONSE_CODE, &status);
                if (status != 302)
                        break;
                if (redirects == http_max_redirects) {
                        log_warning("%shttp: More than %d redirects for %s", http_max_redirects, path);
                        break;
                }
                // The camera names the scheme it wants; the host and the path stay ours.
                const char *location = nullptr;
                curl_easy_getinfo(http.handle, CURLINFO_REDIRECT_URL, &location);
                http.use_https = location && g_str_has_prefix(location, "https://");
                scheme_switched = true;
                redirects++;
        }

        if (body && http.response && http.response->len > 0) {
                *body = g_string_free(http.response, FALSE);
                http.response = nullptr;
        }
        http_forget_response();
        return status;
}
