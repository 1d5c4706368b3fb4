// The camera link as the rest of the service sees it: its start-up and shutdown, and the
// accessors the control interfaces use. Everything here runs on the main loop.
#pragma once

#include <glib.h>

// Reads the camera name, the tracking switch, the guard-tour settings and the zoom
// correction from the configuration, and starts the 100 ms control tick, whose first run
// connects to the configured camera. Always TRUE.
gboolean ptz_control_setup(void);
// Stops a moving camera and reports "disconnected" when connected; forgets the camera.
void ptz_control_teardown(void);

// TRUE while the connection state is "connected".
gboolean camera_is_connected(void);
// The connection state's name, e.g. "connect_failed"; a new string the caller frees.
gchar *camera_get_connection_state(void);

// The tracking switch; the control tick notices a change on its next connected run.
void tracking_set_enabled(gboolean enabled);
gboolean tracking_get_enabled(void);

// The camera's last reported pan and tilt, degrees.
double camera_get_pan(void);
double camera_get_tilt(void);

// Asks the next control tick to connect anew with the settings store's connection.
void camera_request_reconnect(void);
