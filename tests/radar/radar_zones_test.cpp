// The zone client against a real private dbus-daemon and the real sim-zones.
#include "exclude_areas.h"
#include "log_capture.h"
#include "private_bus.h"
#include "radar_zones.h"
#include "sim_zones_process.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>

namespace {

// Everything the bus sent before now has been dispatched on the main context: a call to
// the bus daemon is answered after the signals queued ahead of its reply.
void drain_bus()
{
        g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                                "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                                                                G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
}

// The match rules the bus keeps for this process's connection: a proxy that is gone
// leaves none behind.
guint32 our_match_rules()
{
        g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        g_autoptr(GVariant) stats = private_bus_call(
                connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Debug.Stats",
                "GetConnectionStats", g_variant_new("(s)", g_dbus_connection_get_unique_name(connection)));
        guint32 rules = 0;
        g_autoptr(GVariant) dict = stats ? g_variant_get_child_value(stats, 0) : nullptr;
        EXPECT_TRUE(dict && g_variant_lookup(dict, "MatchRules", "u", &rules));
        return rules;
}

// Zone 1: an enabled square "gate" around the origin plus a second enabled entry of it,
// a square of another kind and a disabled square elsewhere.
constexpr const char *mixed_zones = R"([{"id": 1, "areas": [
  {"name": "gate", "enabled": true, "kind": "excludeArea", "polygon": [[-0.2, -0.2], [0.2, -0.2], [0.2, 0.2], [-0.2, 0.2]]},
  {"name": "yard", "enabled": true, "kind": "excludeArea", "polygon": [[0.5, 0.5], [0.7, 0.5], [0.7, 0.7]]},
  {"name": "road", "enabled": true, "kind": "includeArea", "polygon": [[-0.8, 0.5], [-0.6, 0.5], [-0.6, 0.7], [-0.8, 0.7]]},
  {"name": "shed", "enabled": false, "kind": "excludeArea", "polygon": [[-0.8, -0.8], [-0.6, -0.8], [-0.6, -0.6], [-0.8, -0.6]]}
]}])";

class RadarZones : public ::testing::Test {
protected:
        void SetUp() override
        {
                ASSERT_TRUE(private_bus_of_program().running());
                exclude_areas_init();
                start_sim(mixed_zones);
                rules_before = our_match_rules();
                ASSERT_TRUE(radar_zones_init());
        }
        void TearDown() override
        {
                radar_zones_cleanup();
                drain_bus();
                EXPECT_EQ(our_match_rules(), rules_before) << "the proxy goes with the clean-up";
                exclude_areas_cleanup();
                sim.reset();
                drain_bus();
        }
        void start_sim(const char *zones)
        {
                std::ofstream(scenario) << "{\"rate_hz\": 10, \"zones\": " << zones << "}";
                sim = std::make_unique<SimZonesProcess>(private_bus_of_program().address(), scenario);
                ASSERT_TRUE(sim->ready());
        }

        LogCapture log;
        guint32 rules_before = 0;
        std::unique_ptr<SimZonesProcess> sim;
        TempDir dir{"trelvo-zones"};
        const std::string scenario = dir.file("scenario.json");
};

TEST_F(RadarZones, FetchStoresTheEnabledExclusionAreasARestartOrASignalRebuildsThem)
{
        EXPECT_TRUE(exclude_areas_contains(0, 0));        // gate
        EXPECT_TRUE(exclude_areas_contains(0.65, 0.55));  // yard: same zone, either ring counts
        EXPECT_FALSE(exclude_areas_contains(-0.7, 0.6));  // another kind
        EXPECT_FALSE(exclude_areas_contains(-0.7, -0.7)); // disabled entry

        // The store outlives the service; the new instance's zones (two that overlap in part:
        // the overlap alone is excluded) arrive only through its name appearing: it sends no signal.
        sim->stop();
        drain_bus();
        EXPECT_TRUE(exclude_areas_contains(0.65, 0.55));
        start_sim(R"([
          {"id": 1, "areas": [{"name": "a", "polygon": [[-0.5, -0.5], [0.1, -0.5], [0.1, 0.5], [-0.5, 0.5]]}]},
          {"id": 2, "areas": [{"name": "b", "polygon": [[-0.1, -0.5], [0.5, -0.5], [0.5, 0.5], [-0.1, 0.5]]}]}
        ])");
        EXPECT_TRUE(iterate_until([] { return !exclude_areas_contains(0.65, 0.55); }));
        EXPECT_TRUE(exclude_areas_contains(0, 0));
        EXPECT_FALSE(exclude_areas_contains(-0.3, 0) || exclude_areas_contains(0.3, 0));

        ASSERT_TRUE(sim_zones_control("SetZones", g_variant_new("(s)", R"([{"id": 4, "areas": [{"name": "east",
                "polygon": [[0.4, -0.1], [0.9, -0.1], [0.9, 0.1], [0.4, 0.1]]}]}])")));
        EXPECT_TRUE(iterate_until([] { return exclude_areas_contains(0.6, 0); }));
        ASSERT_TRUE(sim_zones_control("SetZones", g_variant_new("(s)", "[]")));
        EXPECT_TRUE(iterate_until([] { return !exclude_areas_contains(0.6, 0); }));
        EXPECT_TRUE(log.matching("ERROR").empty());
}

TEST_F(RadarZones, PayloadsOfTheWrongTypeLoadNothingAndAreReported)
{
        for (const char *reply : {"('gate', 1)", "()"}) {
                ASSERT_TRUE(sim_zones_control("SetReply", g_variant_new("(ss)", "GetZones", reply)));
                log.clear();
                radar_zones_fetch();
                EXPECT_FALSE(exclude_areas_contains(0, 0)) << reply;
                EXPECT_EQ(log.lines(), Lines{"ERROR: Could not get zones"}) << reply;
        }

        // A listing with an extra element is read by its first.
        log.clear();
        const char *extra = "([(1, [('gate', true), ('yard', true)])], 'extra')";
        ASSERT_TRUE(sim_zones_control("SetReply", g_variant_new("(ss)", "GetZones", extra)));
        radar_zones_fetch();
        EXPECT_TRUE(exclude_areas_contains(0, 0) && exclude_areas_contains(0.65, 0.55));
        EXPECT_TRUE(log.lines().empty());

        // A signal of the wrong layout empties the store like an empty one, with the line.
        ASSERT_TRUE(sim_zones_control("EmitZonesChanged", g_variant_new("(s)", "(42,)")));
        EXPECT_TRUE(iterate_until([] { return !exclude_areas_contains(0, 0); }));
        EXPECT_EQ(log.lines(), std::vector<std::string>{"ERROR: Could not get zones"});
}

TEST_F(RadarZones, AServiceThatVanishesMidCallLeavesAnEmptyStore)
{
        ASSERT_TRUE(sim_zones_control("VanishOn", g_variant_new("(s)", "GetZones")));
        radar_zones_fetch();
        EXPECT_FALSE(exclude_areas_contains(0, 0));
        log.expect_lines({"ERROR: Failed to call GetZones: *", "ERROR: Could not get zones"});
        sim->wait_exit();
}

} // namespace
