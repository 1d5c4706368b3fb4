// The simulated camera's mechanics: pan, tilt and zoom, each a channel that follows either
// a commanded speed (continuous move) or a target (absolute move, go home). Stepped with
// an explicit time step, so tests drive it without a clock.
#pragma once

// Full speed of each channel: what a continuous speed of 100 means, and how fast an
// absolute move travels.
constexpr double ptz_pan_max_speed = 120.0;  // degrees per second
constexpr double ptz_tilt_max_speed = 90.0;  // degrees per second
constexpr double ptz_zoom_max_speed = 2500.0; // zoom units per second: 1 to 9999 in 4 s
// Lag between a commanded speed and the speed reached (first order), seconds.
constexpr double ptz_time_constant = 0.1;
// Absolute moves brake in proportion to the remaining distance with this time constant,
// so they arrive without overshoot.
constexpr double ptz_seek_time_constant = 0.1;

constexpr double ptz_pan_min = -180.0; // pan wraps within [-180, 180)
constexpr double ptz_pan_max = 180.0;
constexpr double ptz_tilt_min = -90.0;
constexpr double ptz_tilt_max = 20.0;
constexpr double ptz_zoom_min = 1.0;
constexpr double ptz_zoom_max = 9999.0;

struct PtzChannel {
        double position = 0.0;
        double velocity = 0.0;      // units per second, as moved in the last step
        double speed_command = 0.0; // continuous-move speed, -100 to 100
        bool seeking = false;       // an absolute move is under way
        double target = 0.0;
};

struct PtzState {
        PtzChannel pan;
        PtzChannel tilt;
        PtzChannel zoom;
};

// Continuous move of one channel at speed (-100 to 100, clamped); ends any absolute move
// of that channel.
void ptz_dynamics_set_speed(PtzChannel *channel, double speed);
// Absolute moves; the target is wrapped (pan) or clamped (tilt, zoom) into range.
void ptz_dynamics_seek_pan(PtzState *state, double pan);
void ptz_dynamics_seek_tilt(PtzState *state, double tilt);
void ptz_dynamics_seek_zoom(PtzState *state, double zoom);
// Puts the camera there at once, at rest (tests, start position).
void ptz_dynamics_teleport(PtzState *state, double pan, double tilt, double zoom);
// Advances the state by dt seconds.
void ptz_dynamics_step(PtzState *state, double dt);
// A channel moves while it seeks or has speed; the camera moves while any channel does.
bool ptz_dynamics_channel_moving(const PtzChannel &channel);
bool ptz_dynamics_moving(const PtzState &state);

// Pan folded into [-180, 180).
double ptz_dynamics_wrap_pan(double pan);
