#include "service_process.h"

#include <gtest/gtest.h>
#include <signal.h>

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

} // namespace
