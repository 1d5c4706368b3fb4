#include "scenario.h"
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

// Positions as the service reads them: range and azimuth, and the normalised point.
TEST(SimRadarScenario, ScenesCarryTheirTimeAndEachObjectWhereTheServiceLooksForIt)
{
        Scenario scenario;
        ASSERT_TRUE(scenario_parse(R"({"rate_hz": 100, "max_range": 100,
                                       "objects": [{"id": 7, "class": 4, "speed": 0, "waypoints": [[30.0, 40.0]]}]})",
                                   &scenario, nullptr));
        const Scene scene = scenario_scene(scenario, 3);
        EXPECT_EQ(scene.time(), 30000u);
        ASSERT_EQ(scene.objects_size(), 1);
        const Object &o = scene.objects(0);
        EXPECT_TRUE(o.id() == 7u && o.labels().labels(0).id() == 4u) << o.DebugString();
        EXPECT_FLOAT_EQ(o.position().x(), 50.0f);
        EXPECT_NEAR(o.position().y(), 36.869898f, 1e-4f);
        EXPECT_FLOAT_EQ(o.bounding_box().left(), 0.3f);
        EXPECT_FLOAT_EQ(o.bounding_box().top(), 0.4f);
}

} // namespace
