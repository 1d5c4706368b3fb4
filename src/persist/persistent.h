// The service's configuration file: one key file with the groups "camera" and "tracking".
// Every setter saves the whole file; every getter falls back to the key's default and
// writes that default back when the key is missing. All calls run on the main loop.
#pragma once

#include <glib.h>

// Loads the file, or creates it with its defaults when there is none. FALSE only when
// a missing file cannot be created. A file that loads only in part is kept as
// trelvo.conf.damaged by the first save that replaces it.
gboolean persistent_setup(void);
// Forgets the key file without saving.
void persistent_cleanup(void);

// The password is stored encrypted and handed back in plain text. The getter overwrites
// the three pointers with new strings the caller owns ("" for a key it cannot read).
void persistent_set_camera_connection(const gchar *ip, const gchar *user, const gchar *pass);
void persistent_get_camera_connection(gchar **ip, gchar **user, gchar **pass);

void persistent_set_mounting_height(double height);
void persistent_get_mounting_height(double *height);

void persistent_set_pan_offset(double degrees);
void persistent_get_pan_offset(double *degrees);

void persistent_set_tilt_offset(double degrees);
void persistent_get_tilt_offset(double *degrees);

void persistent_set_zoom_degree(double percent);
void persistent_get_zoom_degree(double *percent);

// TRUE when the file was saved.
gboolean persistent_set_camera_name(const gchar *name);
// TRUE when the name could be read; *name then holds a new string, otherwise NULL.
gboolean persistent_get_camera_name(gchar **name);

// Each gain is its own key and its own save.
void persistent_set_pan_pid(double kp, double ki, double kd);
void persistent_get_pan_pid(double *kp, double *ki, double *kd);
void persistent_set_tilt_pid(double kp, double ki, double kd);
void persistent_get_tilt_pid(double *kp, double *ki, double *kd);

void persistent_set_tracking_enabled(gboolean enabled);
gboolean persistent_get_tracking_enabled(void);

void persistent_set_guard_tour_enabled(gboolean enabled);
gboolean persistent_get_guard_tour_enabled(void);

// Stored as a double; handed out in the tracker's single precision.
void persistent_set_guard_tour_time(double seconds);
float persistent_get_guard_tour_time(void);

void persistent_set_object_types(gboolean small, gboolean human, gboolean vehicle, gboolean unidentified);
void persistent_get_object_types(gboolean *small, gboolean *human, gboolean *vehicle, gboolean *unidentified);

void persistent_set_return_to_home_enabled(gboolean enabled);
void persistent_get_return_to_home_enabled(gboolean *enabled);

void persistent_set_return_to_home_timeout(int seconds);
void persistent_get_return_to_home_timeout(int *seconds);

void persistent_set_zoom_correction(double correction);
double persistent_get_zoom_correction(void);
