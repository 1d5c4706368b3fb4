#include "log_capture.h"
#include "service.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> calls;
LogCapture *capture;

bool step_ok_a() { calls.push_back("setup a"); capture->install(); return true; }
bool step_ok_b() { calls.push_back("setup b"); return true; }
bool step_quits() { calls.push_back("setup quits"); raise(SIGTERM); return true; }
void teardown_x() { calls.push_back("teardown x"); }
void teardown_y() { calls.push_back("teardown y"); }

constexpr ServiceTeardown teardowns[] = {{"x", teardown_x}, {"y", teardown_y}};

char program[] = "trelvo";
char *argv[] = {program, nullptr};

// A quit signal while the steps run (the real list's are service_test's) is held until the
// loop, which it ends at once; a second run quits its own loop, not the first's.
TEST(ServiceRun, QuitSignalEndsTheLoopAndRunsEveryTeardownOnce)
{
        const ServiceStep steps[] = {
                {"a", step_ok_a, "%sFailed a"},
                {"b", step_ok_b, nullptr},
                {"quits", step_quits, "%sFailed quits"},
        };
        for (int run = 0; run < 2; run++) {
                LogCapture log;
                capture = &log;
                calls.clear();
                EXPECT_EQ(service_run(1, argv, steps, teardowns), 0);
                EXPECT_EQ(calls, (std::vector<std::string>{"setup a", "setup b", "setup quits", "teardown x",
                                                            "teardown y"}));
                EXPECT_TRUE(log.lines().empty());
        }
}

} // namespace
