// One camera channel's PID law (error in, speed command out) and its relay autotune.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct AutotuneSample {
        float value;
        int64_t time;
};

// One oscillation of the relay experiment, from one upward crossing to the next.
struct AutotuneCycle {
        float min;
        float max;
        float period;
};

// The oscillation cycles in the samples; cycles is cleared first.
void autotune_extract_cycles(const std::vector<AutotuneSample> &samples, std::vector<AutotuneCycle> &cycles);

// Autotune gives up after this many seconds without converging.
constexpr float autotune_timeout_s = 25.0f;
// Cycles needed before the convergence test, and how many of the last ones it looks at.
constexpr size_t autotune_min_cycles = 12;
constexpr size_t autotune_used_cycles = 10;

class ChannelPid {
public:
        // tuning_rule: 0 = P only, 1 = PI, 2 = the slow rule used for pan and tilt.
        ChannelPid(uint32_t tuning_rule, float kp, float ki, float kd, float gain_scale, float output_min,
                   float output_max, float error_dead_band, float output_dead_band);

        void start();
        void stop();
        void update(float error);
        // The stored output, or 0 while inactive or while both error and output are inside
        // their dead-bands.
        float output() const;
        // The raw clamped output of the last update, dead-bands not applied.
        float raw_output() const { return output_; }
        float previous_error() const { return previous_error_; }
        float integral() const { return integral_; }
        bool active() const { return active_ != 0; }
        bool settled() const;

        void set_gains(double kp, double ki, double kd);
        void tuned_gains(double *kp, double *ki, double *kd) const;
        float ultimate_gain() const { return ultimate_gain_; }
        float ultimate_period() const { return ultimate_period_; }

        void autotune_start(float set_point, float amplitude);
        // True when finished or timed out (tell them apart with autotune_finished); the
        // command is written only while the autotune runs.
        bool autotune_step(float *command, float measured);
        bool autotune_finished() const { return autotune_finished_ != 0; }
        const std::vector<AutotuneSample> &autotune_samples() const { return samples_; }

private:
        bool autotune_converged();
        void autotune_apply_rule(float amplitude_mean, float period_mean);

        uint32_t tuning_rule_;
        uint32_t active_ = 0;
        float kp_;
        float ki_;
        float kd_;
        float ultimate_gain_ = 0.0f;
        float ultimate_period_ = 0.0f;
        float tuned_kp_ = 0.0f;
        float tuned_ki_ = 0.0f;
        float tuned_kd_ = 0.0f;
        float gain_scale_;
        float output_ = 0.0f;
        float output_min_;
        float output_max_;
        float previous_error_ = 0.0f;
        float integral_ = 0.0f;
        float error_dead_band_;
        float output_dead_band_;
        int64_t last_update_time_ = 0;
        float relay_amplitude_ = 0.0f;
        float relay_set_point_ = 0.0f;
        int64_t autotune_start_time_ = 0;
        uint32_t autotune_finished_ = 0;
        std::vector<AutotuneSample> samples_;
        std::vector<AutotuneCycle> cycles_;
};
