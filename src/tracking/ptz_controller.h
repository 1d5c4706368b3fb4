// Turns the followed set point and the camera's measured position into pan, tilt and zoom
// speeds, switching itself on with a set point and off once the camera has settled.
#pragma once

#include "channel_pid.h"

#include <cstdint>

class PtzController {
public:
        PtzController();

        void set_target(float pan, float tilt, float zoom);
        void update(float measured_pan, float measured_tilt, float measured_zoom);
        void speeds(float *pan, float *tilt, float *zoom) const;
        bool is_active() const { return state_ == 1; }
        void stop();

        void set_pan_gains(double kp, double ki, double kd) { pan_.set_gains(kp, ki, kd); }
        void set_tilt_gains(double kp, double ki, double kd) { tilt_.set_gains(kp, ki, kd); }
        void pan_tuned_gains(double *kp, double *ki, double *kd) const { pan_.tuned_gains(kp, ki, kd); }
        void tilt_tuned_gains(double *kp, double *ki, double *kd) const { tilt_.tuned_gains(kp, ki, kd); }

        void autotune_start(float pan_set_point, float pan_amplitude, float tilt_set_point,
                            float tilt_amplitude);
        bool autotune_step(float *pan_command, float *tilt_command, float pan_position, float tilt_position);
        bool autotune_finished() const { return pan_.autotune_finished() && tilt_.autotune_finished(); }

        float target_pan() const { return target_pan_; }
        float target_tilt() const { return target_tilt_; }
        float target_zoom() const { return target_zoom_; }
        float smoothed_zoom() const { return smoothed_zoom_; }
        const ChannelPid &pan_channel() const { return pan_; }
        const ChannelPid &tilt_channel() const { return tilt_; }
        const ChannelPid &zoom_channel() const { return zoom_; }

private:
        void smooth_zoom();
        float zoom_set_point() const;
        void switch_off_if_done(int64_t now);
        void stop_channels();

        uint32_t state_ = 0;
        float target_pan_ = 0.0f;
        float target_tilt_ = 0.0f;
        float target_zoom_ = 1.0f;
        float smoothed_zoom_ = 1.0f;
        float pan_speed_ = 0.0f;
        float tilt_speed_ = 0.0f;
        float zoom_speed_ = 0.0f;
        ChannelPid pan_;
        ChannelPid tilt_;
        ChannelPid zoom_;
        int64_t last_set_point_time_ = 0;
};
