// The runtime settings store: operator settings read on every scene and control tick.
// Setters log their change line at info level and store; callers validate ranges. The
// store depends on nothing of the service: start-up fills it (settings_load.h).
#pragma once

#include <glib.h>

void settings_set_mounting_height(double height);
double settings_get_mounting_height(void);

void settings_set_return_to_home_enabled(gboolean enabled);
gboolean settings_get_return_to_home_enabled(void);

void settings_set_object_types(gboolean small, gboolean human, gboolean vehicle,
                               gboolean unidentified);
void settings_get_object_types(gboolean *small, gboolean *human, gboolean *vehicle,
                               gboolean *unidentified);

void settings_set_return_to_home_timeout(int seconds);
int settings_get_return_to_home_timeout(void);

void settings_set_pan_offset(double degrees);
double settings_get_pan_offset(void);

void settings_set_tilt_offset(double degrees);
double settings_get_tilt_offset(void);

void settings_set_zoom_degree(double percent);
double settings_get_zoom_degree(void);

// The connection triple is replaced and read whole, under the connection mutex.
// Each string may be NULL; NULL and "" are different values.
void settings_set_camera_connection(const gchar *ip, const gchar *user, const gchar *pass);
// Forgets the triple (shutdown).
void settings_free_camera_connection(void);
// Frees what the three pointers hold, then fills them with copies the caller owns.
void settings_get_camera_connection(gchar **ip, gchar **user, gchar **pass);
