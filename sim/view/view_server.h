// The live view's HTTP server on a Unix socket (the web server in front proxies /sim/ to
// it): the page's files from the www directory under /sim/, the status document at
// /sim/status, and the same document as server-sent events at /sim/updates, pushed to
// every listener rate_hz times a second.
#pragma once

#include "view_model.h"

#include <glib.h>

bool view_server_start(const ViewModel *model, const char *socket_path, const char *www_dir, double rate_hz,
                       GError **error);
void view_server_stop(void);
