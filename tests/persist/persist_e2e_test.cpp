#include "service_process.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

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
        // The camera in the file is unreachable; only the file must give no warning.
        EXPECT_TRUE(service.matching("CRITICAL").empty() && service.matching("Failed to").empty());
        return service.matching("INFO: Setting ");
}

std::string file_text(const std::string &file)
{
        gchar *data = nullptr;
        g_file_get_contents(file.c_str(), &data, nullptr, nullptr);
        std::string copy(data ? data : "");
        g_free(data);
        return copy;
}

TEST(PersistEndToEnd, ServiceKeepsEverySettingAcrossRestartsAndLeavesTheFileIntact)
{
        gchar *dir = g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr);
        const std::string file = std::string(dir) + "/trelvo.conf";

        // A first start creates the file; the load adds the zoom degree it lacks, the camera
        // link the zoom correction.
        const Lines fresh = run_once(dir);
        EXPECT_NE(std::find(fresh.begin(), fresh.end(), "trelvo: INFO: Setting zoom degree to 50.000000"), fresh.end());
        EXPECT_NE(file_text(file).find("tilt_kd=0\nname=\nzoom_degree=50\nzoom_correction=1\n\n[tracking]\n"), std::string::npos);

        // "s3cret", encrypted for the sandbox's eth0 address.
        const std::string text = "[camera]\nmounting_height=7.5\npan_offset=-30.25\ntilt_offset=2.5\n"
                                 "ip=10.0.0.7\nuser=op\npass=61bb09aa7cd86abc3df65e7bb9f677e7\n"
                                 "pan_kp=0.5\npan_ki=0.25\npan_kd=0\ntilt_kp=2\ntilt_ki=0\ntilt_kd=0.125\n"
                                 "name=\nzoom_degree=75\nzoom_correction=1\n\n[tracking]\nenabled=true\nguard_tour_enabled=false\n"
                                 "guard_tour_time=4.7\nreturn_to_home_enabled=true\nreturn_to_home_timeout=120\n"
                                 "small_object_track=true\nhuman_object_track=false\nvehicle_object_track=true\n"
                                 "unidentified_object_track=true\n";
        ASSERT_TRUE(g_file_set_contents(file.c_str(), text.c_str(), -1, nullptr));
        Lines expected = {"connection to op@10.0.0.7", "mounting height to 7.500000",
                          "object types to track - small:1, human:0, vehicle:1, unidentified:1",
                          "return to home enabled status to 1 (0=false, 1=true)", "return to home timeout to 120",
                          "pan offset to -30.250000", "tilt offset to 2.500000", "zoom degree to 75.000000"};
        for (std::string &line : expected)
                line = "trelvo: INFO: Setting " + line;
        for (int start = 0; start < 2; start++) {
                EXPECT_EQ(run_once(dir), expected) << "start " << start;
                EXPECT_EQ(file_text(file), text) << "start " << start;
        }
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

// A file damaged in the middle: the service runs on what it read and the defaults, and
// the first change keeps the whole damaged file beside it before saving over it.
TEST(PersistEndToEnd, DamagedFileIsKeptBesideItBeforeTheFirstChangeIsSaved)
{
        gchar *dir = g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr);
        const std::string file = std::string(dir) + "/trelvo.conf";
        const std::string copy = file + ".damaged";
        const std::string damaged = "[camera]\nmounting_height=7.5\npan_offset=0\ntilt_offset=0\nip=\nuser=\npass=\n"
                                    "pan_kp=1\npan_ki=0\npan_kd=0\ntilt_kp=1\ntilt_ki=0\ntilt_kd=0\nname=\n"
                                    "zoom_degree=50\nzoom_correction=1\n\n@@ damage @@\n[tracking]\n"
                                    "return_to_home_timeout=120\nsmall_object_track=true\n";
        ASSERT_TRUE(g_file_set_contents(file.c_str(), damaged.c_str(), -1, nullptr));
        ServiceOptions options;
        options.conf_dir = dir;
        ServiceProcess service(options);
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const Lines setting = service.matching("INFO: Setting ");
        for (const char *line : {"mounting height to 7.500000", "return to home timeout to 25",
                                 "object types to track - small:0, human:1, vehicle:1, unidentified:0"})
                EXPECT_NE(std::find(setting.begin(), setting.end(), std::string("trelvo: INFO: Setting ") + line),
                          setting.end())
                        << line;
        EXPECT_EQ(service.matching("WARNING: Failed to read configuration from file").size(), 1u);
        EXPECT_EQ(file_text(file), damaged) << "nothing saved before a change";

        const std::string kept = "trelvo: WARNING: Kept the damaged configuration file as " TRELVO_CONF_DIR
                                 "/trelvo.conf.damaged";
        const std::string set = R"({"apiVersion": "1.1", "method": "setCameraPanOffset", "params": {"value": 12.5}})";
        EXPECT_EQ(service.cgi(set).body, R"({"apiVersion":"1.1","method":"setCameraPanOffset","data":{}})");
        EXPECT_EQ(service.matching("Kept the damaged"), Lines{kept});
        EXPECT_EQ(file_text(copy), damaged);
        struct stat info = {};
        EXPECT_EQ(stat(copy.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
        EXPECT_NE(file_text(file).find("\npan_offset=12.5\n"), std::string::npos);
        EXPECT_EQ(file_text(file).find("damage"), std::string::npos);

        // A second change copies nothing: the copy stays the damaged file.
        g_unlink(copy.c_str());
        EXPECT_NE(service.cgi(R"({"apiVersion": "1.1", "method": "setCameraTiltOffset", "params": {"value": 1}})")
                          .body.find("\"data\""),
                  std::string::npos);
        EXPECT_FALSE(g_file_test(copy.c_str(), G_FILE_TEST_EXISTS));
        EXPECT_EQ(service.matching("Kept the damaged").size(), 1u);
        EXPECT_NE(file_text(file).find("\ntilt_offset=1\n"), std::string::npos);
        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
        g_unlink(file.c_str());
        g_rmdir(dir);
        g_free(dir);
}

} // namespace
