#include "service_process.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>

namespace {

// The teardown trace lines, in order.
std::vector<std::string> teardown_trace(const ServiceProcess &service)
{
        return service.matching("Tearing down: ");
}

class QuitSignal : public ::testing::TestWithParam<int> {};

TEST_P(QuitSignal, StopsCleanlyWithStatusZeroAndTearsDownOnce)
{
        ServiceProcess service;
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        service.send_signal(GetParam());
        EXPECT_EQ(service.wait_exit(), 0);

        const std::vector<std::string> trace = teardown_trace(service);
        ASSERT_FALSE(trace.empty());
        EXPECT_EQ(trace.back(), "trelvo: DEBUG: Tearing down: settings_cleanup");
        for (const std::string &line : service.lines()) {
                EXPECT_EQ(line.find("ERROR"), std::string::npos) << line;
                EXPECT_EQ(line.find("CRITICAL"), std::string::npos) << line;
        }
        // Each teardown exactly once.
        std::vector<std::string> sorted = trace;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
}

INSTANTIATE_TEST_SUITE_P(SigtermAndSigint, QuitSignal, ::testing::Values(SIGTERM, SIGINT));

// The zone client is the first step that needs the system bus: with none to be found the
// service stops there, says so once, and still tears everything down.
TEST(FailedSetup, WithoutABusStopsAtTheZoneClientWithStatusOne)
{
        ServiceOptions options;
        options.bus = ServiceBus::none;
        ServiceProcess service(options);
        EXPECT_EQ(service.wait_exit(), 1);

        EXPECT_EQ(service.matching("Failed to init radar zones"),
                  std::vector<std::string>{"trelvo: ERROR: Failed to init radar zones"});
        // The only other error line is the zone client's own reason.
        for (const std::string &line : service.matching("ERROR")) {
                if (line == "trelvo: ERROR: Failed to init radar zones")
                        continue;
                EXPECT_EQ(line.rfind("trelvo: ERROR: Failed to get radar_zones proxy: ", 0), 0u) << line;
        }
        EXPECT_TRUE(service.matching("Running").empty());
        const std::vector<std::string> setups = service.matching("Setting up: ");
        ASSERT_FALSE(setups.empty());
        EXPECT_EQ(setups.back(), "trelvo: DEBUG: Setting up: radar_zones_init");

        std::vector<std::string> trace = teardown_trace(service);
        EXPECT_FALSE(trace.empty());
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "trelvo: DEBUG: Tearing down: radar_zones_cleanup"), 1);
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "trelvo: DEBUG: Tearing down: exclude_areas_cleanup"), 1);
        std::sort(trace.begin(), trace.end());
        EXPECT_EQ(std::adjacent_find(trace.begin(), trace.end()), trace.end());
}

} // namespace
