#include "autotune.h"

#include "camera_connection.h"
#include "camera_position.h"
#include "log.h"
#include "persistent.h"
#include "ptz_commands.h"
#include "tracking.h"

namespace {

enum AutotuneStep {
        STEP_MOVE_TO_ZOOM_CHECK = 1,
        STEP_WAIT_FOR_ZOOM_CHECK = 2,
        STEP_WAIT_FOR_START = 3,
        STEP_START_TUNING = 4,
        STEP_TUNING = 5,
        STEP_FAILED = 6,
        STEP_FINISH = 7,
};

constexpr float test_pan = 0.0f;
constexpr float test_tilt = -45.0f;
constexpr float position_tolerance = 0.5f;
constexpr int wait_limit_ticks = 100;
constexpr float relay_amplitude = 35.0f;
constexpr int attempts = 3;
constexpr float zoom_check_position = 100.0f;

struct Autotune {
        int step;
        int wait_count;
        int attempt_count; // failed attempts, across runs, until the sequence gives up
};

Autotune autotune; // file-level, so it starts zeroed: only non-zero starts are written

bool autotune_at_test_position(const CameraPosition &camera)
{
        return !camera.moving && camera.pan >= test_pan - position_tolerance &&
               camera.pan <= test_pan + position_tolerance && camera.tilt >= test_tilt - position_tolerance &&
               camera.tilt <= test_tilt + position_tolerance;
}

void autotune_check_zoom_scale(const CameraPosition &camera)
{
        const float correction = autotune_zoom_correction(camera.zoom_position);
        if (correction == 0.0f)
                return;
        zoom_calibration_set_correction(correction);
        persistent_set_zoom_correction(static_cast<double>(correction));
        camera_send_absolute_move(test_pan, test_tilt, 1.0f);
        autotune.step = STEP_WAIT_FOR_START;
        autotune.wait_count = 0;
}

bool autotune_waited_too_long(const char *message)
{
        if (++autotune.wait_count <= wait_limit_ticks)
                return false;
        // The messages are this file's own literals, each with one "%s".
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        g_log(NULL, TRELVO_LOG_LEVEL_ERROR, message, "");
#pragma GCC diagnostic pop
        autotune.step = STEP_FAILED;
        return true;
}

void autotune_store_gains(void)
{
        double kp = 0.0, ki = 0.0, kd = 0.0;
        controller_get_pan_tuned_pid(&kp, &ki, &kd);
        controller_set_pan_pid(kp, ki, kd);
        persistent_set_pan_pid(kp, ki, kd);
        controller_get_tilt_tuned_pid(&kp, &ki, &kd);
        controller_set_tilt_pid(kp, ki, kd);
        persistent_set_tilt_pid(kp, ki, kd);
        camera_adopt_product_number();
}

void autotune_tune(const CameraPosition &camera)
{
        float pan = 0.0f, tilt = 0.0f, zoom = 0.0f;
        if (controller_autotune_step(&pan, &tilt, &zoom, camera.pan, camera.tilt, camera.magnification)) {
                if (controller_autotune_finished()) {
                        autotune_store_gains();
                        autotune.step = STEP_FINISH;
                } else {
                        autotune.step = STEP_FAILED;
                }
        }
        camera_send_continuous_move(pan, tilt, zoom);
}

void autotune_count_failure(void)
{
        if (++autotune.attempt_count >= attempts) {
                // Given up: the old gains and the old camera name stay.
                autotune.attempt_count = 0;
                autotune.step = STEP_FINISH;
        } else {
                autotune.step = STEP_MOVE_TO_ZOOM_CHECK;
        }
}

void autotune_finish(void)
{
        camera_send_absolute_move(0.0f, -3.6f, 1.0f);
        if (camera_connection_state() != CAMERA_CONNECTED)
                camera_set_state(CAMERA_CONNECTED);
        camera_resume_control_tick();
}

} // namespace

float autotune_zoom_correction(int reported_zoom)
{
        if (reported_zoom >= 45 && reported_zoom <= 55)
                return 2.0f;
        if (reported_zoom >= 95 && reported_zoom <= 105)
                return 1.0f;
        return 0.0f;
}

void autotune_begin(void)
{
        autotune.step = STEP_MOVE_TO_ZOOM_CHECK;
}

gboolean autotune_tick(gpointer)
{
        const CameraPosition camera = camera_position_get();
        switch (autotune.step) {
        case STEP_MOVE_TO_ZOOM_CHECK:
                camera_send_absolute_move(test_pan, test_tilt, zoom_check_position);
                autotune.step = STEP_WAIT_FOR_ZOOM_CHECK;
                autotune.wait_count = 0;
                break;
        case STEP_WAIT_FOR_ZOOM_CHECK:
                if (!autotune_waited_too_long("%sFailed to go to autotune zoom check position") &&
                    autotune_at_test_position(camera))
                        autotune_check_zoom_scale(camera);
                break;
        case STEP_WAIT_FOR_START:
                if (!autotune_waited_too_long("%sFailed to go to autotune position") &&
                    autotune_at_test_position(camera) && camera.zoom_position <= 19)
                        autotune.step = STEP_START_TUNING;
                break;
        case STEP_START_TUNING:
                controller_autotune_start(camera.pan, relay_amplitude, camera.tilt, relay_amplitude, 1.0f, 0.0f);
                autotune.step = STEP_TUNING;
                break;
        case STEP_TUNING:
                autotune_tune(camera);
                break;
        case STEP_FAILED:
                autotune_count_failure();
                break;
        case STEP_FINISH:
                autotune_finish();
                return FALSE;
        default:
                break;
        }
        return TRUE;
}
