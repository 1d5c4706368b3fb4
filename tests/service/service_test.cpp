#include "service_process.h"
#include "sim_events_process.h"
#include "temp_dir.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace {

std::string last(const Lines &lines)
{
        return lines.empty() ? "(none)" : lines.back();
}

// Starts the service, stops it with the signal once it runs and checks that it stopped
// cleanly after the whole teardown list.
void run_and_stop(const ServiceOptions &options, int signal)
{
        ServiceProcess service(options);
        EXPECT_TRUE(service.wait_for_line("DEBUG: Running"));
        service.send_signal(signal);
        EXPECT_EQ(service.wait_exit(), 0);
        EXPECT_EQ(last(service.matching("Tearing down: ")), "trelvo: DEBUG: Tearing down: settings_cleanup");
        for (const char *level : {"ERROR", "CRITICAL", "WARNING"})
                EXPECT_EQ(service.matching(level), Lines{});
        // The connection event declared at start-up is withdrawn at shutdown.
        const std::vector<SimEventCall> calls = service.events().log();
        EXPECT_TRUE(calls.size() >= 2 && calls.front().method == "DeclareEvent" &&
                    calls.back().method == "UndeclareEvent" && calls.back().id == calls.front().id &&
                    !calls.back().failed);
}

// The order and the once-only run of the lists are service_run's own (core_test); here the
// real lists meet the real configuration file and peers.
TEST(Service, QuitSignalsStopItCleanlyAndTheConfigFileIsCreatedOnceThenLeftAlone)
{
        const TempDir dir{"trelvo-conf"};
        const std::string file = dir.file("trelvo.conf");
        const ServiceOptions options{.conf_dir = dir.path()};

        // The first start creates the file; the load adds the zoom degree it lacks, the camera
        // link the zoom correction.
        run_and_stop(options, SIGINT);
        EXPECT_NE(file_text(file).find("tilt_kd=0\nname=\nzoom_degree=50\nzoom_correction=1\n\n[tracking]\n"), std::string::npos);

        // Every key the load reads is there now: nothing is saved (a save replaces the file).
        GStatBuf before, after;
        ASSERT_EQ(g_stat(file.c_str(), &before), 0);
        run_and_stop(options, SIGTERM);
        ASSERT_EQ(g_stat(file.c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino);
}

// The first step that fails stops the service after its reason and its own line; nothing
// after it is set up, and the whole teardown list still runs.
TEST(Service, AFailedStepStopsItWithStatusOne)
{
        struct Case {
                ServiceOptions options;
                std::string reason, failure, step;
        } cases[] = {
                {{.conf_read_only = true},
                 "trelvo: WARNING: Failed to write configuration to file, path: " TRELVO_CONF_DIR "/trelvo.conf, error: ",
                 "trelvo: ERROR: Failed to setup persistent", "persistent_setup"},
                // The event declaration is the first step that needs the system bus.
                {{.bus = ServiceBus::none}, "trelvo: WARNING: Failed to create proxy to data collection service: ",
                 "trelvo: ERROR: Failed to setup events", "declare_state_event"},
        };
        for (const Case &c : cases) {
                ServiceProcess service(c.options);
                EXPECT_EQ(service.wait_exit(), 1) << c.step;
                EXPECT_EQ(service.matching(c.reason).size(), 1u) << c.step;
                EXPECT_EQ(service.matching("ERROR"), Lines{c.failure}) << c.step;
                EXPECT_EQ(last(service.matching("Setting up: ")), "trelvo: DEBUG: Setting up: " + c.step);
                EXPECT_EQ(last(service.matching("Tearing down: ")), "trelvo: DEBUG: Tearing down: settings_cleanup");
                EXPECT_TRUE(service.matching("Running").empty() && service.matching("CRITICAL").empty()) << c.step;
        }
}

} // namespace
