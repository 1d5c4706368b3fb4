// The simulated camera's moves, stepped directly.
#include "ptz_dynamics.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

void step_for(PtzState *state, double seconds)
{
        for (int i = 0; i < static_cast<int>(std::lround(seconds / 0.01)); i++)
                ptz_dynamics_step(state, 0.01);
}

TEST(PtzDynamics, ContinuousMovesFollowTheSpeedWithLagAndStopDead)
{
        PtzState state;
        ptz_dynamics_teleport(&state, 170.0, 10.0, 9000.0);
        ptz_dynamics_set_speed(&state.pan, 50.0);
        ptz_dynamics_set_speed(&state.tilt, 200.0); // clamped to 100
        ptz_dynamics_set_speed(&state.zoom, 100.0);
        ptz_dynamics_step(&state, ptz_time_constant); // one time constant: 63 % of the speed
        EXPECT_NEAR(state.pan.velocity, 0.632 * 0.5 * ptz_pan_max_speed, 0.5);
        step_for(&state, 1.0);
        EXPECT_NEAR(state.pan.velocity, 0.5 * ptz_pan_max_speed, 0.1);
        EXPECT_LT(state.pan.position, -100.0); // wrapped past 180
        EXPECT_EQ(state.tilt.position, ptz_tilt_max); // against the end stops
        EXPECT_EQ(state.zoom.position, ptz_zoom_max);
        EXPECT_EQ(state.tilt.velocity, 0.0);

        for (PtzChannel *channel : {&state.pan, &state.tilt, &state.zoom})
                ptz_dynamics_set_speed(channel, 0.0);
        step_for(&state, 1.0);
        const double stopped_at = state.pan.position;
        EXPECT_FALSE(ptz_dynamics_moving(state));
        ptz_dynamics_step(&state, 0.5);
        EXPECT_EQ(state.pan.position, stopped_at); // a stopped camera reports the same position

        ptz_dynamics_set_speed(&state.tilt, -100.0);
        step_for(&state, 0.5);
        EXPECT_LT(state.tilt.velocity, -0.9 * ptz_tilt_max_speed);
}

} // namespace
