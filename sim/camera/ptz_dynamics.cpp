#include "ptz_dynamics.h"

#include <algorithm>
#include <cmath>

namespace {

struct ChannelLimits {
        double max_speed;
        double min;
        double max;
        bool wraps;
        double arrival; // an absolute move closer than this has arrived
};

constexpr ChannelLimits pan_limits{ptz_pan_max_speed, ptz_pan_min, ptz_pan_max, true, 0.001};
constexpr ChannelLimits tilt_limits{ptz_tilt_max_speed, ptz_tilt_min, ptz_tilt_max, false, 0.001};
constexpr ChannelLimits zoom_limits{ptz_zoom_max_speed, ptz_zoom_min, ptz_zoom_max, false, 0.05};

// Longer steps are cut into pieces of this size, so a late timer cannot make a seek
// overshoot or the lag jump.
constexpr double max_substep = 0.01;

double ptz_dynamics_clamp(double value, double low, double high)
{
        return std::min(std::max(value, low), high);
}

double ptz_dynamics_remaining(const PtzChannel &channel, const ChannelLimits &limits)
{
        const double difference = channel.target - channel.position;
        return limits.wraps ? ptz_dynamics_wrap_pan(difference) : difference;
}

double ptz_dynamics_lag(double velocity, double desired, double dt)
{
        return velocity + (desired - velocity) * (1.0 - std::exp(-dt / ptz_time_constant));
}

// Velocity of a seeking channel: full speed far away, braking in proportion to the
// distance close by. Braking takes effect at once; only speeding up lags.
double ptz_dynamics_seek_velocity(const PtzChannel &channel, const ChannelLimits &limits, double dt)
{
        const double remaining = ptz_dynamics_remaining(channel, limits);
        const double desired = ptz_dynamics_clamp(remaining / ptz_seek_time_constant, -limits.max_speed, limits.max_speed);
        const bool braking = desired * channel.velocity >= 0.0 && std::fabs(desired) <= std::fabs(channel.velocity);
        return braking ? desired : ptz_dynamics_lag(channel.velocity, desired, dt);
}

void ptz_dynamics_keep_in_range(PtzChannel *channel, const ChannelLimits &limits)
{
        if (limits.wraps) {
                channel->position = ptz_dynamics_wrap_pan(channel->position);
                return;
        }
        if (channel->position < limits.min || channel->position > limits.max) {
                channel->position = ptz_dynamics_clamp(channel->position, limits.min, limits.max);
                channel->velocity = 0.0; // against the end stop
        }
}

void ptz_dynamics_step_channel(PtzChannel *channel, const ChannelLimits &limits, double dt)
{
        if (channel->seeking) {
                channel->velocity = ptz_dynamics_seek_velocity(*channel, limits, dt);
        } else {
                channel->velocity = ptz_dynamics_lag(channel->velocity, channel->speed_command / 100.0 * limits.max_speed, dt);
                // The lag never reaches zero by itself; a stopped camera must report a
                // position that no longer changes.
                if (channel->speed_command == 0.0 && std::fabs(channel->velocity) < limits.max_speed * 0.01)
                        channel->velocity = 0.0;
        }
        channel->position += channel->velocity * dt;
        ptz_dynamics_keep_in_range(channel, limits);
        if (channel->seeking && std::fabs(ptz_dynamics_remaining(*channel, limits)) <= limits.arrival) {
                channel->position = channel->target;
                channel->velocity = 0.0;
                channel->seeking = false;
        }
}

void ptz_dynamics_seek(PtzChannel *channel, double target)
{
        channel->seeking = true;
        channel->target = target;
        channel->speed_command = 0.0;
}

} // namespace

double ptz_dynamics_wrap_pan(double pan)
{
        const double wrapped = std::fmod(pan - ptz_pan_min, ptz_pan_max - ptz_pan_min);
        return (wrapped < 0.0 ? wrapped + (ptz_pan_max - ptz_pan_min) : wrapped) + ptz_pan_min;
}

void ptz_dynamics_set_speed(PtzChannel *channel, double speed)
{
        channel->speed_command = ptz_dynamics_clamp(speed, -100.0, 100.0);
        channel->seeking = false;
}

void ptz_dynamics_seek_pan(PtzState *state, double pan)
{
        ptz_dynamics_seek(&state->pan, ptz_dynamics_wrap_pan(pan));
}

void ptz_dynamics_seek_tilt(PtzState *state, double tilt)
{
        ptz_dynamics_seek(&state->tilt, ptz_dynamics_clamp(tilt, ptz_tilt_min, ptz_tilt_max));
}

void ptz_dynamics_seek_zoom(PtzState *state, double zoom)
{
        ptz_dynamics_seek(&state->zoom, ptz_dynamics_clamp(zoom, ptz_zoom_min, ptz_zoom_max));
}

void ptz_dynamics_teleport(PtzState *state, double pan, double tilt, double zoom)
{
        state->pan = PtzChannel{.position = ptz_dynamics_wrap_pan(pan)};
        state->tilt = PtzChannel{.position = ptz_dynamics_clamp(tilt, ptz_tilt_min, ptz_tilt_max)};
        state->zoom = PtzChannel{.position = ptz_dynamics_clamp(zoom, ptz_zoom_min, ptz_zoom_max)};
}

void ptz_dynamics_step(PtzState *state, double dt)
{
        while (dt > 0.0) {
                const double substep = std::min(dt, max_substep);
                ptz_dynamics_step_channel(&state->pan, pan_limits, substep);
                ptz_dynamics_step_channel(&state->tilt, tilt_limits, substep);
                ptz_dynamics_step_channel(&state->zoom, zoom_limits, substep);
                dt -= substep;
        }
}

bool ptz_dynamics_channel_moving(const PtzChannel &channel)
{
        return channel.seeking || channel.velocity != 0.0;
}

bool ptz_dynamics_moving(const PtzState &state)
{
        return ptz_dynamics_channel_moving(state.pan) || ptz_dynamics_channel_moving(state.tilt) ||
               ptz_dynamics_channel_moving(state.zoom);
}
