#include "clock.h"
#include "target_tracker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// The scene thread updates and removes while the main loop refreshes and reads.
TEST(TrackerThreads, SceneThreadAgainstMainLoop)
{
        clock_use_manual(1'000'000'000);
        TargetTracker tracker;
        tracker.set_guard_tour_enabled(true);
        std::atomic<bool> scene_done{false};
        std::thread scene([&] {
                for (uint32_t round = 0; round < 2000; round++) {
                        for (uint32_t object = 0; object < 8; object++) {
                                const auto pan = static_cast<float>((object * 23 + round) % 180) - 90.0f;
                                tracker.update_target(1, object, pan, -5.0f, 4.0f);
                        }
                        tracker.remove_target(1, round % 8);
                        clock_advance_us(50'000);
                }
                scene_done.store(true);
        });
        float pan = 0, tilt = 0, width = 0;
        for (int i = 0; i < 2000 || !scene_done.load(); i++) {
                tracker.refresh();
                tracker.get_target(0, 0, &pan, &tilt, &width);
        }
        scene.join();
        // Not counted in the loop: a busy machine may run the whole scene between two reads.
        EXPECT_TRUE(tracker.get_target(0, 0, &pan, &tilt, &width));
        clock_use_real();
}
