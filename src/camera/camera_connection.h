// The connection manager's inside, for the autotune and for tests that step its timers
// by hand instead of waiting for them.
#pragma once

#include <glib.h>

enum CameraConnectionState {
        CAMERA_DISCONNECTED = 0,
        CAMERA_CONNECTING = 1,
        CAMERA_AUTOTUNE = 2,
        CAMERA_CONNECTED = 3,
        CAMERA_CONNECT_FAILED = 4,
};

// Where the current connection's positions come from.
enum PositionSource {
        POSITION_UNPROBED = 0,
        POSITION_STREAM = 1,
        POSITION_POLLING = 2,
};

CameraConnectionState camera_connection_state(void);
PositionSource camera_position_source(void);
// Stores the state and publishes its name; callers change it only when it differs.
void camera_set_state(CameraConnectionState state);

// The timers' callbacks: the 100 ms control tick and the 500 ms position poll.
gboolean ptz_control_tick(gpointer user_data);
gboolean position_poll_tick(gpointer user_data);
// The stream's error handler: back to polling, and a new probe.
void metadata_feed_stopped(void *user_data);

// The autotune's end: the control tick runs again.
void camera_resume_control_tick(void);
// The product number read by the last probe (NULL before one), and its adoption as the
// name of the camera the gains are tuned for.
const gchar *camera_product_number(void);
void camera_adopt_product_number(void);
