#include "service_process.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace {

using Lines = std::vector<std::string>;

std::string last(const Lines &lines)
{
        return lines.empty() ? "(none)" : lines.back();
}

// The order and the once-only run of the lists are service_run's own (core_test); here the
// real start-up and teardown lists meet the real peers.
class QuitSignal : public ::testing::TestWithParam<int> {};

TEST_P(QuitSignal, StopsCleanlyWithStatusZeroAfterTheWholeTeardownList)
{
        ServiceProcess service;
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        service.send_signal(GetParam());
        EXPECT_EQ(service.wait_exit(), 0);
        EXPECT_EQ(last(service.matching("Tearing down: ")), "trelvo: DEBUG: Tearing down: settings_cleanup");
        EXPECT_EQ(service.matching("ERROR"), Lines{});
        EXPECT_EQ(service.matching("CRITICAL"), Lines{});
}

INSTANTIATE_TEST_SUITE_P(SigtermAndSigint, QuitSignal, ::testing::Values(SIGTERM, SIGINT));

// The zone client is the first step that needs the system bus: with none to be found the
// service stops there, says so once after the client's own reason, and still tears down.
TEST(FailedSetup, WithoutABusStopsAtTheZoneClientWithStatusOne)
{
        ServiceOptions options;
        options.bus = ServiceBus::none;
        ServiceProcess service(options);
        EXPECT_EQ(service.wait_exit(), 1);
        const Lines errors = service.matching("ERROR");
        ASSERT_EQ(errors.size(), 2u);
        EXPECT_TRUE(errors[0].starts_with("trelvo: ERROR: Failed to get radar_zones proxy: ")) << errors[0];
        EXPECT_EQ(errors[1], "trelvo: ERROR: Failed to init radar zones");
        EXPECT_TRUE(service.matching("Running").empty());
        EXPECT_EQ(last(service.matching("Setting up: ")), "trelvo: DEBUG: Setting up: radar_zones_init");
        EXPECT_EQ(last(service.matching("Tearing down: ")), "trelvo: DEBUG: Tearing down: settings_cleanup");
}

} // namespace
