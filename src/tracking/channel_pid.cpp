#include "channel_pid.h"

#include "clock.h"
#include "tracking_math.h"

#include <cmath>
#include <optional>
#include <span>

namespace {

struct CycleStats {
        float mean;
        float deviation;
};

template <typename Field>
CycleStats pid_cycle_stats(std::span<const AutotuneCycle> cycles, Field field)
{
        float sum = 0.0f;
        for (const AutotuneCycle &cycle : cycles)
                sum += field(cycle);
        const float count = static_cast<float>(cycles.size());
        const float mean = sum / count;
        float squares = 0.0f;
        for (const AutotuneCycle &cycle : cycles) {
                const float d = field(cycle) - mean;
                squares += d * d;
        }
        return {mean, std::sqrt(squares / count)};
}

AutotuneCycle autotune_cycle_between(const std::vector<AutotuneSample> &samples, size_t rise, size_t next_rise)
{
        AutotuneCycle cycle{9999.9f, -9999.9f, 0.0f};
        for (size_t k = rise; k < next_rise; k++) {
                cycle.min = std::fmin(cycle.min, samples[k].value);
                cycle.max = std::fmax(cycle.max, samples[k].value);
        }
        cycle.period = clock_seconds_between(samples[rise].time, samples[next_rise].time);
        return cycle;
}

} // namespace

void autotune_extract_cycles(const std::vector<AutotuneSample> &samples, std::vector<AutotuneCycle> &cycles)
{
        cycles.clear();
        float highest = -9999.9f;
        float lowest = 9999.9f;
        for (const AutotuneSample &sample : samples) {
                highest = std::fmax(highest, sample.value);
                lowest = std::fmin(lowest, sample.value);
        }
        // Crossings need a tenth of the swing beyond the middle, so that noise near the
        // switching level does not count as a cycle.
        const float hysteresis = std::fabs(highest - lowest) / 10.0f;
        const float middle = (highest + lowest) * 0.5f;
        const float upper = middle + hysteresis;
        const float lower = middle - hysteresis;

        // A cycle runs from one rise above the upper level to the next; a fall below the
        // lower level must come between them.
        const size_t n = samples.size();
        std::optional<size_t> last_rise;
        size_t i = 0;
        for (;;) {
                while (i < n && !(samples[i].value > upper))
                        i++;
                if (i == n)
                        return;
                if (last_rise)
                        cycles.push_back(autotune_cycle_between(samples, *last_rise, i));
                last_rise = i;
                while (i < n && !(samples[i].value < lower))
                        i++;
                if (i == n)
                        return;
        }
}

ChannelPid::ChannelPid(uint32_t tuning_rule, float kp, float ki, float kd, float gain_scale, float output_min,
                       float output_max, float error_dead_band, float output_dead_band)
        : tuning_rule_(tuning_rule), kp_(kp), ki_(ki), kd_(kd), gain_scale_(gain_scale), output_min_(output_min),
          output_max_(output_max), error_dead_band_(error_dead_band), output_dead_band_(output_dead_band)
{
}

void ChannelPid::start()
{
        if (active_)
                return;
        integral_ = 0.0f;
        previous_error_ = 0.0f;
        last_update_time_ = 0;
        active_ = 1;
}

void ChannelPid::stop()
{
        active_ = 0;
}

void ChannelPid::update(float error)
{
        const int64_t now = clock_now_us();
        const float p = tracking_clamp(kp_ * error, output_min_, output_max_);
        float integral_term = 0.0f;
        float derivative = 0.0f;
        if (last_update_time_ != 0) {
                const float dt = clock_seconds_between(last_update_time_, now);
                const float de = error - previous_error_;
                const float candidate = integral_ + ki_ * (error + 0.5f * std::fabs(de)) * dt;
                // The integral only gets the room that P leaves inside the output range.
                if (candidate > output_max_ - p)
                        integral_ = output_max_ - p;
                else if (candidate < output_min_ - p)
                        integral_ = output_min_ - p;
                else
                        integral_ = candidate;
                integral_term = integral_;
                // Two updates within the same microsecond have no rate to speak of.
                if (dt > 0.0f)
                        derivative = kd_ * de / dt;
        }
        output_ = tracking_clamp(integral_term + p + derivative, output_min_, output_max_);
        previous_error_ = error;
        last_update_time_ = now;
}

float ChannelPid::output() const
{
        if (!active_)
                return 0.0f;
        if (std::fabs(previous_error_) < error_dead_band_ && std::fabs(output_) < output_dead_band_)
                return 0.0f;
        return output_;
}

bool ChannelPid::settled() const
{
        return std::fabs(previous_error_) < error_dead_band_ && std::fabs(output_) < output_dead_band_;
}

void ChannelPid::set_gains(double kp, double ki, double kd)
{
        kp_ = static_cast<float>(kp);
        ki_ = static_cast<float>(ki);
        kd_ = static_cast<float>(kd);
}

void ChannelPid::tuned_gains(double *kp, double *ki, double *kd) const
{
        *kp = static_cast<double>(tuned_kp_);
        *ki = static_cast<double>(tuned_ki_);
        *kd = static_cast<double>(tuned_kd_);
}

void ChannelPid::autotune_start(float set_point, float amplitude)
{
        samples_.clear();
        autotune_start_time_ = clock_now_us();
        relay_set_point_ = set_point;
        relay_amplitude_ = amplitude;
        autotune_finished_ = 0;
}

bool ChannelPid::autotune_step(float *command, float measured)
{
        if (autotune_start_time_ == 0)
                return true;
        const int64_t now = clock_now_us();
        if (clock_seconds_between(autotune_start_time_, now) > autotune_timeout_s)
                return true;
        *command = relay_set_point_ < measured ? -relay_amplitude_ : relay_amplitude_;
        samples_.push_back({measured, now});
        if (autotune_converged())
                return true;
        return autotune_finished_ != 0;
}

bool ChannelPid::autotune_converged()
{
        autotune_extract_cycles(samples_, cycles_);
        if (cycles_.size() < autotune_min_cycles)
                return false;
        const auto last = std::span<const AutotuneCycle>(cycles_).last(autotune_used_cycles);
        const CycleStats swing = pid_cycle_stats(last, [](const AutotuneCycle &c) { return c.max - c.min; });
        const CycleStats period = pid_cycle_stats(last, [](const AutotuneCycle &c) { return c.period; });
        if (!(0.25f * swing.mean > swing.deviation && 0.25f * period.mean > period.deviation))
                return false;
        autotune_apply_rule(swing.mean, period.mean);
        autotune_finished_ = 1;
        return true;
}

void ChannelPid::autotune_apply_rule(float amplitude_mean, float period_mean)
{
        // Describing function of an ideal relay: Ku = 4a / (pi * A/2), A peak to peak.
        const double ku = (4.0 * static_cast<double>(relay_amplitude_)) /
                          (static_cast<double>(amplitude_mean) * tracking_pi * 0.5);
        ultimate_gain_ = static_cast<float>(ku) / gain_scale_;
        ultimate_period_ = period_mean;
        const float u = ultimate_gain_;
        const float t = ultimate_period_;
        switch (tuning_rule_) {
        case 0:
                tuned_kp_ = 0.5f * u;
                tuned_ki_ = 0.0f;
                tuned_kd_ = 0.0f;
                break;
        case 1:
                tuned_kp_ = 0.45f * u;
                tuned_ki_ = 0.54f * u / t;
                tuned_kd_ = 0.0f;
                break;
        default:
                tuned_kp_ = 0.2f * u;
                tuned_ki_ = 0.25f * t;
                tuned_kd_ = t / 6.0f;
                break;
        }
}
