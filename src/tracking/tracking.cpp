#include "tracking.h"

#include "ptz_controller.h"
#include "target_tracker.h"

namespace {

// Owned by the settings store, which attaches them after creating them and detaches them
// before destroying them.
PtzController *tracking_controller = nullptr;
TargetTracker *tracking_tracker = nullptr;

} // namespace

void tracking_core_attach(PtzController *controller, TargetTracker *tracker)
{
        tracking_controller = controller;
        tracking_tracker = tracker;
}

PtzController *ptz_controller_create(void)
{
        return new PtzController();
}

void ptz_controller_destroy(PtzController *controller)
{
        delete controller;
}

TargetTracker *target_tracker_create(void)
{
        return new TargetTracker();
}

void target_tracker_destroy(TargetTracker *tracker)
{
        delete tracker;
}

PtzController *get_ptz_controller(void)
{
        return tracking_controller;
}

TargetTracker *get_target_tracker(void)
{
        return tracking_tracker;
}

void tracker_update_target(uint32_t source, uint32_t object, float pan, float tilt, float width)
{
        get_target_tracker()->update_target(source, object, pan, tilt, width);
}

void tracker_remove_target(uint32_t source, uint32_t object)
{
        get_target_tracker()->remove_target(source, object);
}

void tracker_refresh(void)
{
        get_target_tracker()->refresh();
}

gboolean tracker_get_target(float *pan, float *tilt, float *width, float camera_pan, float camera_tilt)
{
        return get_target_tracker()->get_target(camera_pan, camera_tilt, pan, tilt, width) ? TRUE : FALSE;
}

void tracker_set_guard_tour_enabled(gboolean enabled)
{
        get_target_tracker()->set_guard_tour_enabled(enabled != FALSE);
}

gboolean tracker_get_guard_tour_enabled(void)
{
        return get_target_tracker()->guard_tour_enabled() ? TRUE : FALSE;
}

void tracker_set_guard_tour_time(float seconds)
{
        get_target_tracker()->set_guard_tour_time(seconds);
}

float tracker_get_guard_tour_time(void)
{
        return get_target_tracker()->guard_tour_time();
}

void controller_set_target(float pan, float tilt, float zoom)
{
        get_ptz_controller()->set_target(pan, tilt, zoom);
}

void controller_update(float current_pan, float current_tilt, float current_zoom)
{
        get_ptz_controller()->update(current_pan, current_tilt, current_zoom);
}

void controller_get_speeds(float *pan_speed, float *tilt_speed, float *zoom_speed)
{
        get_ptz_controller()->speeds(pan_speed, tilt_speed, zoom_speed);
}

gboolean controller_is_active(void)
{
        return get_ptz_controller()->is_active() ? TRUE : FALSE;
}

void controller_stop(void)
{
        get_ptz_controller()->stop();
}

void controller_autotune_start(float pan_set_point, float pan_amplitude, float tilt_set_point,
                               float tilt_amplitude, float /*zoom_set_point*/, float /*zoom_amplitude*/)
{
        // Zoom is never autotuned: its gains are fixed.
        get_ptz_controller()->autotune_start(pan_set_point, pan_amplitude, tilt_set_point, tilt_amplitude);
}

gboolean controller_autotune_step(float *pan_command, float *tilt_command, float * /*zoom_command*/,
                                  float pan_position, float tilt_position, float /*zoom_position*/)
{
        PtzController *controller = get_ptz_controller();
        return controller->autotune_step(pan_command, tilt_command, pan_position, tilt_position) ? TRUE : FALSE;
}

gboolean controller_autotune_finished(void)
{
        return get_ptz_controller()->autotune_finished() ? TRUE : FALSE;
}

void controller_set_pan_pid(double kp, double ki, double kd)
{
        get_ptz_controller()->set_pan_gains(kp, ki, kd);
}

void controller_set_tilt_pid(double kp, double ki, double kd)
{
        get_ptz_controller()->set_tilt_gains(kp, ki, kd);
}

void controller_get_pan_tuned_pid(double *kp, double *ki, double *kd)
{
        get_ptz_controller()->pan_tuned_gains(kp, ki, kd);
}

void controller_get_tilt_tuned_pid(double *kp, double *ki, double *kd)
{
        get_ptz_controller()->tilt_tuned_gains(kp, ki, kd);
}
