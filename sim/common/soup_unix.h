// The simulated programs' HTTP servers on Unix sockets.
#pragma once

#include <libsoup/soup.h>

// Serves server on a listening Unix socket at path; a socket an earlier run left there is
// replaced. False with error set when it cannot listen.
bool sim_soup_listen_unix(SoupServer *server, const char *path, GError **error);
