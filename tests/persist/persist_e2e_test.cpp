#include "service_process.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <string>

namespace {

using Lines = std::vector<std::string>;

std::string file_text(const std::string &file)
{
        gchar *data = nullptr;
        g_file_get_contents(file.c_str(), &data, nullptr, nullptr);
        std::string copy(data ? data : "");
        g_free(data);
        return copy;
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
