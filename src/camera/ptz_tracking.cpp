#include "ptz_tracking.h"

#include "camera.h"
#include "camera_position.h"
#include "clock.h"
#include "geometry.h"
#include "ptz_commands.h"
#include "settings.h"
#include "tracking.h"

#include <cmath>

namespace {

// Movement after the camera settled that counts as someone having moved it since.
constexpr float home_pan_tilt_tolerance = 2.0f;
constexpr float home_magnification_tolerance = 0.4f;

struct TrackingMoves {
        gboolean tracking_enabled;
        gboolean last_tracking_enabled;
        gboolean move_active; // the last continuous move sent was not the stop
        gboolean controller_was_active;
        gboolean home_pending;
        int64_t idle_since_us;
        CameraPosition idle_position; // where the camera settled
};

TrackingMoves moves; // file-level, so it starts zeroed: only non-zero starts are written

void tracking_follow_switch(void)
{
        if (moves.tracking_enabled == moves.last_tracking_enabled)
                return;
        moves.last_tracking_enabled = moves.tracking_enabled;
        if (!moves.tracking_enabled) {
                camera_send_stop();
                controller_stop();
        }
}

void tracking_aim(const CameraPosition &camera)
{
        float pan = 0.0f, tilt = 0.0f, width = 0.0f;
        if (!tracker_get_target(&pan, &tilt, &width, camera.pan, camera.tilt) || !moves.tracking_enabled)
                return;
        float set_pan = 0.0f, set_tilt = 0.0f, set_zoom = 0.0f;
        set_point_from_group(pan, tilt, width, zoom_calibration_get().max_field_angle, &set_pan, &set_tilt,
                             &set_zoom);
        controller_set_target(set_pan, set_tilt, set_zoom);
}

void tracking_send_moves(void)
{
        if (controller_is_active()) {
                float pan = 0.0f, tilt = 0.0f, zoom = 0.0f;
                controller_get_speeds(&pan, &tilt, &zoom);
                camera_send_continuous_move(pan, tilt, zoom);
                moves.move_active = TRUE;
        } else if (moves.move_active) {
                camera_send_stop();
                moves.move_active = FALSE;
        }
}

bool tracking_moved_since_idle(const CameraPosition &camera)
{
        const CameraPosition &idle = moves.idle_position;
        return std::fabs(idle.pan - camera.pan) > home_pan_tilt_tolerance ||
               std::fabs(idle.tilt - camera.tilt) > home_pan_tilt_tolerance ||
               std::fabs(idle.magnification - camera.magnification) > home_magnification_tolerance;
}

void tracking_return_to_home(const CameraPosition &camera)
{
        if (!settings_get_return_to_home_enabled()) {
                moves.controller_was_active = FALSE;
                moves.home_pending = FALSE;
                return;
        }
        const gboolean active = controller_is_active();
        if (moves.controller_was_active && !active) {
                moves.idle_since_us = clock_now_us();
                moves.idle_position = camera;
                moves.home_pending = TRUE;
        }
        moves.controller_was_active = active;
        if (!moves.home_pending)
                return;
        if (tracking_moved_since_idle(camera))
                moves.home_pending = FALSE;
        // Checked in the same tick even when a move just disarmed it.
        const int64_t elapsed_ms = (clock_now_us() - moves.idle_since_us) / 1000;
        if (elapsed_ms >= static_cast<int64_t>(settings_get_return_to_home_timeout()) * 1000) {
                camera_send_go_home();
                moves.home_pending = FALSE;
        }
}

} // namespace

void camera_tracking_tick(void)
{
        const CameraPosition camera = camera_position_get();
        tracking_follow_switch();
        tracking_aim(camera);
        controller_update(camera.pan, camera.tilt, camera.magnification);
        if (!moves.tracking_enabled)
                return;
        tracking_send_moves();
        tracking_return_to_home(camera);
}

void tracking_set_enabled(gboolean enabled)
{
        moves.tracking_enabled = enabled;
}

gboolean tracking_get_enabled(void)
{
        return moves.tracking_enabled;
}
