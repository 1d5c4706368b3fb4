// The autotune run when the probe finds a camera model the gains were not tuned for: a
// zoom-scale check at a test position, the relay autotune of the pan and tilt channels
// with the camera in the loop, the tuned gains stored, the camera parked. A step machine
// on a 50 ms timer that replaces the control tick while it runs.
#pragma once

#include <glib.h>

inline constexpr guint autotune_tick_ms = 50;

// The zoom check: a camera sent to zoom position 100 that reports about 100 reports zoom
// at full scale (correction 1), one that reports about 50 at half scale (2); 0 for
// anything else.
float autotune_zoom_correction(int reported_zoom);

// Back to the first step; the caller then adds the timer.
void autotune_begin(void);
gboolean autotune_tick(gpointer user_data);
