#include "clock.h"
#include "ptz_controller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

namespace {

class Controller : public ::testing::Test {
protected:
        void SetUp() override { clock_use_manual(1'000'000'000); }
        void TearDown() override { clock_use_real(); }

        PtzController controller;
};

} // namespace

TEST_F(Controller, SetTargetClampsZoomFollowsTheSmoothingAndSpeedRulesAndAClosedLoopSettles)
{
        controller.update(0, 0, 1);
        EXPECT_FALSE(controller.is_active()) << "no set point yet";
        controller.set_target(400, -100, 20);
        EXPECT_TRUE(controller.is_active());
        EXPECT_EQ(std::tuple(controller.target_pan(), controller.target_tilt(), controller.smoothed_zoom()),
                  std::tuple(360.0f, -90.0f, 12.0f));
        controller.stop();
        EXPECT_FALSE(controller.pan_channel().active() || controller.tilt_channel().active() ||
                     controller.zoom_channel().active()) << "a stop starts every channel afresh next time";

        // Zooming in eases, zooming out follows faster.
        controller.set_target(0, 0, 1);
        controller.set_target(0, 0, 5);
        controller.update(0, 0, 1);
        controller.update(0, 0, 1);
        EXPECT_FLOAT_EQ(controller.smoothed_zoom(), 2.11f) << "1.6 after the first";
        controller.set_target(0, 0, 1);
        controller.update(0, 0, 1);
        EXPECT_FLOAT_EQ(controller.smoothed_zoom(), 0.75f + 2.11f * 0.25f);
        controller.stop();

        // Fast pan: fully out; moderate pan: out in proportion. Pan error wraps at the seam.
        controller.set_target(350, 0, 4);
        controller.update(20, 0, 1);
        EXPECT_FLOAT_EQ(controller.pan_channel().previous_error(), -30.0f);
        EXPECT_FLOAT_EQ(controller.zoom_channel().previous_error(), 0.0f);
        controller.update(15, 0, 1); // exactly 25 degrees per second is not yet fast
        EXPECT_FLOAT_EQ(controller.zoom_channel().previous_error(), 3.0f - 1.0f);
        controller.update(340, 0, 1);
        EXPECT_FLOAT_EQ(controller.zoom_channel().previous_error(), 3.6f - 1.0f);
        controller.stop();

        // A closed loop settles inside the dead-bands and switches itself off. Per unit of speed
        // the camera turns 1 degree/s and zooms 0.025 steps/s; 100 ms control tick.
        float pan = 0, tilt = 0, zoom = 1, pan_speed = 0, tilt_speed = 0, zoom_speed = 0;
        auto tick = [&](bool set_point) {
                clock_advance_us(100'000);
                if (set_point)
                        controller.set_target(30, -10, 4);
                controller.update(pan, tilt, zoom);
                controller.speeds(&pan_speed, &tilt_speed, &zoom_speed);
                pan += pan_speed * 0.1f;
                tilt += tilt_speed * 0.1f;
                zoom = std::clamp(zoom + zoom_speed * 0.0025f, 1.0f, 12.0f);
        };
        for (int i = 0; i < 60; i++)
                tick(true);
        EXPECT_NEAR(pan, 30.0f, 2.0f);
        EXPECT_NEAR(tilt, -10.0f, 2.0f);
        EXPECT_NEAR(zoom, 4.0f, 0.4f);
        EXPECT_EQ(pan_speed + tilt_speed + zoom_speed, 0.0f) << "settled inside the dead-bands";

        // Idle only once more than 1.5 s have passed since the last set point.
        for (int i = 0; i < 15; i++)
                tick(false);
        EXPECT_TRUE(controller.is_active()) << "exactly 1.5 s";
        clock_advance_us(1);
        controller.update(pan, tilt, zoom);
        EXPECT_FALSE(controller.is_active());

        // A camera that does not follow keeps the controller on until 7 s have passed.
        controller.set_target(30, 0, 1);
        clock_advance_us(7'000'000);
        controller.update(0, 0, 1);
        EXPECT_TRUE(controller.is_active());
        clock_advance_us(1);
        controller.update(0, 0, 1);
        EXPECT_FALSE(controller.is_active());

        // An output right at its dead-band passes, so the camera has not settled: it stays on.
        controller.set_pan_gains(2, 0, 0);
        controller.set_target(1.5f, 0, 1);
        clock_advance_us(1'600'000);
        controller.update(0, 0, 1);
        EXPECT_TRUE(controller.is_active());
}
