// The configuration CGI: the JSON methods at /zelk-cgi/trelvo.cgi through which operators
// read and change the settings, served by the radar CGI library on the socket that
// systemd hands over. Requests are handled on the main loop, one at a time.
#pragma once

#include <glib.h>

// Serves the CGI on the one socket systemd passed (descriptor 3). FALSE when systemd
// passed another number of sockets or the library cannot use it.
gboolean cgi_setup(void);
// Stops serving; nothing when not set up.
void cgi_cleanup(void);

// The API's message for an error code; "Internal error" for a code without one.
const char *cgi_error_message(int code);
// The API code reported for one of the CGI library's own failure codes (-7 to -1).
int cgi_map_error_code(int library_code);
