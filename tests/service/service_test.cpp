#include "service_process.h"
#include "sim_events_process.h"

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
        // The connection event was declared at start-up and is withdrawn at shutdown.
        const std::vector<SimEventCall> calls = service.events().log();
        ASSERT_GE(calls.size(), 2u);
        EXPECT_EQ(calls.front().method, "DeclareEvent");
        EXPECT_EQ(calls.back().method, "UndeclareEvent");
        EXPECT_EQ(calls.back().id, calls.front().id);
        EXPECT_FALSE(calls.back().failed);
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

// The event declaration is the first step that needs the system bus: with none to be
// found the service stops there, says so once, and still tears everything down.
TEST(FailedSetup, WithoutABusStopsAtTheEventDeclarationWithStatusOne)
{
        ServiceOptions options;
        options.bus = ServiceBus::none;
        ServiceProcess service(options);
        EXPECT_EQ(service.wait_exit(), 1);

        EXPECT_EQ(service.matching("ERROR"), std::vector<std::string>{"trelvo: ERROR: Failed to setup events"});
        // Its reason is a warning of the event client's own.
        const std::vector<std::string> warnings = service.matching("WARNING");
        ASSERT_EQ(warnings.size(), 1u);
        EXPECT_EQ(warnings[0].rfind("trelvo: WARNING: Failed to create proxy to data collection service: ", 0), 0u)
                << warnings[0];
        EXPECT_TRUE(service.matching("Running").empty());
        const std::vector<std::string> setups = service.matching("Setting up: ");
        ASSERT_FALSE(setups.empty());
        EXPECT_EQ(setups.back(), "trelvo: DEBUG: Setting up: declare_state_event");

        std::vector<std::string> trace = teardown_trace(service);
        EXPECT_FALSE(trace.empty());
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "trelvo: DEBUG: Tearing down: radar_zones_cleanup"), 1);
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "trelvo: DEBUG: Tearing down: undeclare_state_event"), 1);
        std::sort(trace.begin(), trace.end());
        EXPECT_EQ(std::adjacent_find(trace.begin(), trace.end()), trace.end());
}

} // namespace
