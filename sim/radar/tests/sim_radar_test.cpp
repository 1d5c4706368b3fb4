#include "scenario_scene.h"

#include <gtest/gtest.h>

namespace {

TEST(SimRadarScenario, ObjectsWalkTheirWaypointsAndLeaveUnlessLooping)
{
        ScenarioObject walker{.id = 1, .class_index = 3, .speed = 2.0, .loop = false, .waypoints = {{0, 10}, {0, 20}, {10, 20}}};
        GroundPoint at{};
        ASSERT_TRUE(scenario_object_position(walker, 7.5, &at)); // 15 m: halfway along the second leg
        EXPECT_DOUBLE_EQ(at.x, 5.0);
        EXPECT_DOUBLE_EQ(at.y, 20.0);
        EXPECT_FALSE(scenario_object_position(walker, 10.5, &at)); // past the end: gone

        // A looping path closes back to its start; with two waypoints it walks back and forth.
        walker.waypoints = {{0, 10}, {0, 20}};
        walker.loop = true;
        ASSERT_TRUE(scenario_object_position(walker, 7.0, &at)); // 14 m: 4 m on the way back
        EXPECT_DOUBLE_EQ(at.y, 16.0);
}

} // namespace
