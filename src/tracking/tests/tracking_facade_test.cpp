#include "clock.h"
#include "tracking.h"

#include <gtest/gtest.h>

TEST(Facade, ForwardsAndWritesOutputsOnlyWhenThereIsSomethingToWrite)
{
        ptz_controller_destroy(nullptr);
        target_tracker_destroy(nullptr);
        clock_use_manual(1'000'000'000);
        tracking_core_attach(ptz_controller_create(), target_tracker_create());
        EXPECT_FALSE(tracker_get_guard_tour_enabled());
        EXPECT_FLOAT_EQ(tracker_get_guard_tour_time(), 4.0f);

        float pan = 11, tilt = 22, width = 33;
        EXPECT_FALSE(tracker_get_target(&pan, &tilt, &width, 0, 0));
        EXPECT_EQ(pan + tilt + width, 66.0f) << "outputs left as they were";
        tracker_update_target(1, 5, 20, -3, 4);
        EXPECT_TRUE(tracker_get_target(&pan, &tilt, &width, 0, 0));
        EXPECT_FLOAT_EQ(pan, 20.0f);

        float pan_command = 0, tilt_command = 0, zoom_command = 0.5f;
        controller_autotune_start(10, 35, -10, 35, 5, 50);
        EXPECT_FALSE(controller_autotune_step(&pan_command, &tilt_command, &zoom_command, 20, 0, 1));
        EXPECT_EQ(pan_command, -35.0f);
        EXPECT_EQ(tilt_command, -35.0f);
        EXPECT_EQ(zoom_command, 0.5f);

        // Persisted gains take effect: kp 2 doubles the first step.
        controller_set_pan_pid(2.0, 0.0, 0.0);
        controller_set_target(10, 0, 1);
        controller_update(0, 0, 1);
        float pan_speed = 0, tilt_speed = 0, zoom_speed = 0;
        controller_get_speeds(&pan_speed, &tilt_speed, &zoom_speed);
        EXPECT_FLOAT_EQ(pan_speed, 20.0f);

        PtzController *controller = get_ptz_controller();
        TargetTracker *tracker = get_target_tracker();
        tracking_core_attach(nullptr, nullptr);
        target_tracker_destroy(tracker);
        ptz_controller_destroy(controller);
        clock_use_real();
}
