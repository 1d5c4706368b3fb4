// The tracking core's flat facade: free functions over the two process-wide singletons,
// so that no signature outside the core names a class. The singletons exist between
// settings_load and settings_cleanup (start-up); every function here assumes they do.
#pragma once

#include <glib.h>

#include <cstdint>

class PtzController;
class TargetTracker;

PtzController *ptz_controller_create(void);
void ptz_controller_destroy(PtzController *controller); // NULL does nothing
TargetTracker *target_tracker_create(void);
void target_tracker_destroy(TargetTracker *tracker); // NULL does nothing
PtzController *get_ptz_controller(void);
TargetTracker *get_target_tracker(void);
// Stores the two singletons that get_ptz_controller/get_target_tracker return: settings_load
// calls it after creating both, settings_cleanup with NULLs before destroying them.
void tracking_core_attach(PtzController *controller, TargetTracker *tracker);

// Target tracker. Update and remove come from the scene thread; the rest from the main loop.
void tracker_update_target(uint32_t source, uint32_t object, float pan, float tilt, float width);
void tracker_remove_target(uint32_t source, uint32_t object);
void tracker_refresh(void);
// Writes the three outputs only when it returns TRUE.
gboolean tracker_get_target(float *pan, float *tilt, float *width, float camera_pan, float camera_tilt);
void tracker_set_guard_tour_enabled(gboolean enabled);
gboolean tracker_get_guard_tour_enabled(void);
void tracker_set_guard_tour_time(float seconds);
float tracker_get_guard_tour_time(void);

// PTZ motion controller (main loop only).
void controller_set_target(float pan, float tilt, float zoom);
void controller_update(float current_pan, float current_tilt, float current_zoom);
void controller_get_speeds(float *pan_speed, float *tilt_speed, float *zoom_speed);
gboolean controller_is_active(void);
void controller_stop(void);
void controller_autotune_start(float pan_set_point, float pan_amplitude, float tilt_set_point,
                               float tilt_amplitude, float zoom_set_point, float zoom_amplitude);
// Never writes *zoom_command.
gboolean controller_autotune_step(float *pan_command, float *tilt_command, float *zoom_command,
                                  float pan_position, float tilt_position, float zoom_position);
gboolean controller_autotune_finished(void);
void controller_set_pan_pid(double kp, double ki, double kd);
void controller_set_tilt_pid(double kp, double ki, double kd);
void controller_get_pan_tuned_pid(double *kp, double *ki, double *kd);
void controller_get_tilt_tuned_pid(double *kp, double *ki, double *kd);
