#include "service_process.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

namespace {

using Lines = std::vector<std::string>;

// Starts the service on a host config directory, stops it with SIGTERM once it runs;
// returns the settings store's change lines.
Lines run_once(const std::string &conf_dir)
{
        ServiceOptions options;
        options.conf_dir = conf_dir;
        ServiceProcess service(options);
        EXPECT_TRUE(service.wait_for_line("DEBUG: Running"));
        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
        EXPECT_TRUE(service.matching("CRITICAL").empty() && service.matching("WARNING").empty());
        return service.matching("INFO: Setting ");
}

TEST(PersistEndToEnd, FirstStartCreatesTheFileAndALaterStartLeavesItAlone)
{
        gchar *dir = g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr);
        const std::string file = std::string(dir) + "/trelvo.conf";

        // The first start creates the file; the load adds the zoom degree it lacks.
        const Lines fresh = run_once(dir);
        EXPECT_NE(std::find(fresh.begin(), fresh.end(), "trelvo: INFO: Setting zoom degree to 50.000000"), fresh.end());
        gchar *created = nullptr;
        ASSERT_TRUE(g_file_get_contents(file.c_str(), &created, nullptr, nullptr));
        EXPECT_NE(std::string(created).find("tilt_kd=0\nname=\nzoom_degree=50\n\n[tracking]\n"), std::string::npos);
        g_free(created);

        // Every key the load reads is there now: nothing is saved (a save replaces the file).
        GStatBuf before, after;
        ASSERT_EQ(g_stat(file.c_str(), &before), 0);
        run_once(dir);
        ASSERT_EQ(g_stat(file.c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino);
        g_unlink(file.c_str());
        g_rmdir(dir);
        g_free(dir);
}

TEST(PersistEndToEnd, ConfigFileThatCannotBeCreatedStopsTheServiceAfterEveryTeardown)
{
        ServiceOptions options;
        options.conf_read_only = true;
        ServiceProcess service(options);
        EXPECT_EQ(service.wait_exit(), 1);
        const std::string failed = "WARNING: Failed to write configuration to file, path: " TRELVO_CONF_DIR "/trelvo.conf";
        EXPECT_EQ(service.matching(failed + ", error: ").size(), 1u);
        EXPECT_EQ(service.matching("ERROR: "), Lines{"trelvo: ERROR: Failed to setup persistent"});
        EXPECT_TRUE(service.matching("Setting up: settings_load").empty());
        EXPECT_EQ(service.matching("Tearing down: persistent_cleanup").size(), 1u);
        const Lines teardowns = service.matching("Tearing down: ");
        ASSERT_FALSE(teardowns.empty());
        EXPECT_EQ(teardowns.back(), "trelvo: DEBUG: Tearing down: settings_cleanup");
        EXPECT_TRUE(service.matching("CRITICAL").empty());
}

} // namespace
