#include "ptz_controller.h"

#include "clock.h"
#include "geometry.h"
#include "tracking_math.h"

#include <cmath>

namespace {

// Settled on the set point with none newer for this long: the camera may rest.
constexpr float controller_settle_s = 1.5f;
// No set point for this long: whatever was followed has gone.
constexpr float controller_abandon_s = 7.0f;
// Above this speed the camera zooms fully out; between the two it zooms out in proportion.
constexpr float controller_fast_speed = 25.0f;
constexpr float controller_slow_speed = 5.0f;


} // namespace

PtzController::PtzController()
        : pan_(2, 1.0f, 0.0f, 0.0f, 1.0f, -100.0f, 100.0f, 2.0f, 3.0f),
          tilt_(2, 1.0f, 0.0f, 0.0f, 1.0f, -100.0f, 100.0f, 2.0f, 3.0f),
          zoom_(0, 20.0f, 0.0f, 0.0f, 25.0f, -100.0f, 100.0f, 0.4f, 7.0f)
{
}

void PtzController::set_target(float pan, float tilt, float zoom)
{
        target_pan_ = tracking_clamp(pan, -360.0f, 360.0f);
        target_tilt_ = tracking_clamp(tilt, -90.0f, 90.0f);
        target_zoom_ = tracking_clamp(zoom, 1.0f, 12.0f);
        if (state_ != 1) {
                // A fresh start jumps straight to the wanted zoom instead of easing into it.
                smoothed_zoom_ = target_zoom_;
                if (state_ == 0) {
                        pan_.start();
                        tilt_.start();
                        zoom_.start();
                        state_ = 1;
                }
        }
        last_set_point_time_ = clock_now_us();
}

void PtzController::smooth_zoom()
{
        // Zooming out follows faster than zooming in, so a target is not lost while zooming.
        if (target_zoom_ > smoothed_zoom_)
                smoothed_zoom_ = smoothed_zoom_ * 0.85f + target_zoom_ * 0.15f;
        else if (target_zoom_ < smoothed_zoom_)
                smoothed_zoom_ = target_zoom_ * 0.75f + smoothed_zoom_ * 0.25f;
}

float PtzController::zoom_set_point() const
{
        const float fastest = std::fmax(std::fabs(pan_speed_), std::fabs(tilt_speed_));
        if (fastest > controller_fast_speed)
                return 1.0f;
        if (fastest > controller_slow_speed)
                return smoothed_zoom_ * (1.0f - fastest / 100.0f);
        return smoothed_zoom_;
}

void PtzController::update(float measured_pan, float measured_tilt, float measured_zoom)
{
        const float p = tracking_clamp(measured_pan, -360.0f, 360.0f);
        const float t = tracking_clamp(measured_tilt, -90.0f, 90.0f);
        const float z = tracking_clamp(measured_zoom, 1.0f, 12.0f);

        pan_.update(angle_difference(target_pan_, p));
        pan_speed_ = pan_.output();
        tilt_.update(target_tilt_ - t);
        tilt_speed_ = tilt_.output();

        smooth_zoom();
        zoom_.update(zoom_set_point() - z);
        zoom_speed_ = zoom_.output();

        if (last_set_point_time_ != 0)
                switch_off_if_done(clock_now_us());
}

void PtzController::switch_off_if_done(int64_t now)
{
        const float idle = clock_seconds_between(last_set_point_time_, now);
        const bool settled = pan_.settled() && tilt_.settled() && zoom_.settled();
        if ((settled && idle > controller_settle_s) || idle > controller_abandon_s)
                stop();
}

void PtzController::speeds(float *pan, float *tilt, float *zoom) const
{
        *pan = pan_speed_;
        *tilt = tilt_speed_;
        *zoom = zoom_speed_;
}

void PtzController::stop_channels()
{
        pan_.stop();
        tilt_.stop();
        zoom_.stop();
}

void PtzController::stop()
{
        if (state_ != 1)
                return;
        stop_channels();
        state_ = 0;
}

void PtzController::autotune_start(float pan_set_point, float pan_amplitude, float tilt_set_point,
                                   float tilt_amplitude)
{
        pan_.autotune_start(pan_set_point, pan_amplitude);
        tilt_.autotune_start(tilt_set_point, tilt_amplitude);
}

bool PtzController::autotune_step(float *pan_command, float *tilt_command, float pan_position,
                                  float tilt_position)
{
        const bool pan_done = pan_.autotune_step(pan_command, pan_position);
        const bool tilt_done = tilt_.autotune_step(tilt_command, tilt_position);
        return pan_done && tilt_done;
}
