#include "key_file.h"
#include "log_capture.h"
#include "persistent.h"
#include "temp_dir.h"

#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace {

const std::string path = PERSISTENT_PATH;
const std::string damaged_path = path + ".damaged";

unsigned file_mode(const std::string &file)
{
        struct stat info;
        return stat(file.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

// Read-only stops root too; the sandbox's tmpfs is ours to remount.
void set_read_only(bool read_only)
{
        mount(nullptr, TRELVO_CONF_DIR, nullptr, MS_REMOUNT | MS_BIND | (read_only ? MS_RDONLY : 0), nullptr);
}

class Persist : public ::testing::Test {
protected:
        void SetUp() override
        {
                struct statfs fs;
                in_sandbox_ = statfs(TRELVO_CONF_DIR, &fs) == 0 && fs.f_type == TMPFS_MAGIC;
                ASSERT_TRUE(in_sandbox_) << "run inside tests/rig/sandbox (ctest does)";
                unlink(path.c_str());
                unlink(damaged_path.c_str());
        }
        void TearDown() override
        {
                persistent_cleanup();
                if (in_sandbox_)
                        set_read_only(false);
        }
        bool in_sandbox_ = false;
};

std::string read_all()
{
        double d[10];
        persistent_get_mounting_height(&d[0]);
        persistent_get_pan_offset(&d[1]);
        persistent_get_tilt_offset(&d[2]);
        gchar *ip = nullptr, *user = nullptr, *pass = nullptr, *name = nullptr;
        persistent_get_camera_connection(&ip, &user, &pass);
        persistent_get_pan_pid(&d[3], &d[4], &d[5]);
        persistent_get_tilt_pid(&d[6], &d[7], &d[8]);
        persistent_get_zoom_degree(&d[9]);
        std::ostringstream out;
        out << taken(ip) << "|" << taken(user) << "|" << taken(pass) << "|";
        for (const double value : d)
                out << value << " ";
        out << persistent_get_zoom_correction() << " | ";
        gboolean b[7] = {persistent_get_tracking_enabled(), persistent_get_guard_tour_enabled()};
        out << persistent_get_guard_tour_time() << " ";
        persistent_get_return_to_home_enabled(&b[2]);
        int timeout = 0;
        persistent_get_return_to_home_timeout(&timeout);
        persistent_get_object_types(&b[3], &b[4], &b[5], &b[6]);
        out << timeout << " ";
        for (const gboolean value : b)
                out << value;
        const gboolean named = persistent_get_camera_name(&name);
        out << " | " << named << " " << taken(name);
        return out.str();
}

const std::string camera_defaults = "mounting_height=4\npan_offset=0\ntilt_offset=0\nip=\nuser=\npass=\n"
                                    "pan_kp=1\npan_ki=0\npan_kd=0\ntilt_kp=1\ntilt_ki=0\ntilt_kd=0\n";
const std::string tracking_defaults = "\n[tracking]\nenabled=false\nguard_tour_enabled=false\nguard_tour_time=4\n"
                                      "return_to_home_enabled=false\nreturn_to_home_timeout=25\n"
                                      "small_object_track=false\nhuman_object_track=true\n"
                                      "vehicle_object_track=true\nunidentified_object_track=false\n";

TEST_F(Persist, NewFileHoldsTheDefaultsOwnerOnlyAndEverySettingSurvivesAReload)
{
        LogCapture log;
        ASSERT_TRUE(persistent_setup());
        EXPECT_EQ(file_mode(path), 0600u);
        EXPECT_EQ(file_text(path), "[camera]\n" + camera_defaults + "name=\n" + tracking_defaults);

        persistent_set_camera_connection("192.168.0.90", "operator", "pa ss=wörd");
        persistent_set_mounting_height(7.25);
        persistent_set_pan_offset(-359.5);
        persistent_set_tilt_offset(9.75);
        persistent_set_zoom_degree(0.0);
        persistent_set_pan_pid(0.5, 0.25, 0.125);
        persistent_set_tilt_pid(2.0, 0.0, 1e-6);
        persistent_set_tracking_enabled(TRUE);
        persistent_set_guard_tour_enabled(TRUE);
        persistent_set_guard_tour_time(4.7);
        persistent_set_object_types(TRUE, FALSE, FALSE, TRUE);
        persistent_set_return_to_home_enabled(TRUE);
        persistent_set_return_to_home_timeout(300);
        persistent_set_zoom_correction(0.5);
        EXPECT_TRUE(persistent_set_camera_name("Q6075"));

        persistent_cleanup();
        ASSERT_TRUE(persistent_setup());
        EXPECT_EQ(read_all(), "192.168.0.90|operator|pa ss=wörd|7.25 -359.5 9.75 0.5 0.25 0.125 2 0 1e-06 0 0.5 | "
                              "4.7 300 1111001 | 1 Q6075");
        EXPECT_TRUE(log.lines().empty());
}

TEST_F(Persist, AMissingKeyReadsAsItsDefaultAndIsWrittenBackOtherReadFailuresOnlyLog)
{
        const std::string full =
                "[camera]\n" + camera_defaults + "zoom_degree=50\nzoom_correction=1\n" + tracking_defaults;
        LogCapture log;
        // One key missing at a time, so that its own read is the only one that saves.
        std::istringstream lines(full);
        for (std::string line; std::getline(lines, line);) {
                if (line.find('=') == std::string::npos)
                        continue;
                std::string without = full;
                without.erase(without.find("\n" + line + "\n"), line.size() + 1);
                ASSERT_TRUE(g_file_set_contents(path.c_str(), without.c_str(), -1, nullptr));
                ASSERT_TRUE(persistent_setup());
                // The camera name has no default: it stays missing.
                EXPECT_EQ(read_all(), "|||4 0 0 1 0 0 1 0 0 50 1 | 4 25 0000110 | 0 (null)") << line;
                EXPECT_NE(file_text(path).find("\n" + line + "\n"), std::string::npos) << line;
        }
        EXPECT_TRUE(log.lines().empty());

        g_file_set_contents(path.c_str(), "[camera]\nmounting_height=high\n", -1, nullptr);
        ASSERT_TRUE(persistent_setup());
        EXPECT_FALSE(persistent_get_tracking_enabled()); // no such group
        double height = 0.0;
        persistent_get_mounting_height(&height); // not a number
        EXPECT_EQ(height, 4.0);
        EXPECT_EQ(file_text(path), "[camera]\nmounting_height=high\n");
        log.expect_lines({"WARNING: Failed to read tracking enabled from file " + path + ", error(4): *",
                          "WARNING: Failed to read camera mounting height from file " + path + ", error(5): *"});
}

// What follows the damage is not lost: the file is kept aside before a save replaces it.
TEST_F(Persist, DamagedFileIsKeptOnceOwnerOnlyBeforeTheFirstSaveReplacesIt)
{
        const std::string damaged = "[camera]\nmounting_height=7.5\nnot a key\npan_offset=3\n";
        g_file_set_contents(path.c_str(), damaged.c_str(), -1, nullptr);
        g_file_set_contents(damaged_path.c_str(), "an older copy", -1, nullptr);
        chmod(damaged_path.c_str(), 0644);
        LogCapture log;
        ASSERT_TRUE(persistent_setup());
        double value = 0.0;
        persistent_get_pan_offset(&value); // after the damage: missing, so written back...
        log.expect_lines({"WARNING: Failed to read configuration from file, path: " + path + ", error: *",
                          "WARNING: Kept the damaged configuration file as " + damaged_path});
        EXPECT_EQ(file_text(damaged_path), damaged); // ...after the copy, which replaced the older one
        EXPECT_EQ(file_mode(damaged_path), 0600u);
        EXPECT_EQ(file_text(path), "[camera]\nmounting_height=7.5\npan_offset=0\n");

        unlink(damaged_path.c_str());
        persistent_set_tilt_offset(1.5); // a second save copies nothing
        EXPECT_FALSE(g_file_test(damaged_path.c_str(), G_FILE_TEST_EXISTS));

        // A copy that cannot be written stops the save: the file stays as it is.
        g_file_set_contents(path.c_str(), "not a key file\n", -1, nullptr);
        ASSERT_TRUE(persistent_setup());
        set_read_only(true);
        log.clear();
        persistent_set_pan_offset(12.5);
        log.expect_lines({"WARNING: Failed to save camera pan offset",
                          "WARNING: error: Failed to create file “" + damaged_path + "*"});
        EXPECT_EQ(file_text(path), "not a key file\n");
        set_read_only(false);
        persistent_set_tilt_offset(1.5);
        EXPECT_EQ(file_text(damaged_path), "not a key file\n");
        EXPECT_EQ(file_text(path), "[camera]\npan_offset=12.5\ntilt_offset=1.5\n");

        // One that cannot be read at all is moved aside whole.
        unlink(damaged_path.c_str());
        unlink(path.c_str());
        ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
        ASSERT_TRUE(persistent_setup());
        set_read_only(true); // nor moved: the save stops there
        log.clear();
        persistent_set_pan_offset(2.0);
        log.expect_lines({"WARNING: Failed to save camera pan offset",
                          "WARNING: error: Failed to move " + path + " aside: *"});
        set_read_only(false);
        persistent_set_pan_offset(2.0);
        EXPECT_EQ(file_mode(damaged_path), 0600u) << "owner-only, like the copy";
        EXPECT_EQ(file_text(path), "[camera]\npan_offset=2\n");
        rmdir(damaged_path.c_str());
}

// Each failed save of its own, so that a leaked error shows under the leak checker.
TEST_F(Persist, ReadOnlyDirectoryKeepsChangesInMemoryUntilASaveSucceeds)
{
        // Nothing loaded is nothing to write: no reason to empty the file.
        g_file_set_contents(path.c_str(), "[camera]\npan_offset=1\n", -1, nullptr);
        LogCapture log;
        g_autoptr(GError) error = nullptr;
        EXPECT_FALSE(persistent_save(&error));
        EXPECT_NE(error, nullptr);
        gchar *name = nullptr;
        EXPECT_FALSE(persistent_get_camera_name(&name) || persistent_set_camera_name("cam")) << "no name without a file";
        EXPECT_EQ(log.lines().size(), 2u) << "each refused at its own precondition: " << testing::PrintToString(log.lines());
        EXPECT_EQ(file_text(path), "[camera]\npan_offset=1\n");
        unlink(path.c_str());
        ASSERT_TRUE(persistent_setup());
        const std::string before = file_text(path);
        set_read_only(true);
        log.clear();
        persistent_set_pan_offset(-20.0);
        persistent_set_tracking_enabled(TRUE);
        persistent_set_return_to_home_timeout(300);
        set_string("camera", "user", "op", "Failed to save camera user");
        EXPECT_FALSE(persistent_set_camera_name("cam"));
        double zoom = 0.0;
        persistent_get_zoom_degree(&zoom);
        log.expect_lines({"WARNING: Failed to save camera pan offset", "WARNING: error: *",
                          "WARNING: Failed to save tracking enabled", "WARNING: Error saving key 'enabled': *",
                          "WARNING: Failed to save return to home timeout", "WARNING: error: *",
                          "WARNING: Failed to save camera user", "WARNING: error: *",
                          "WARNING: Failed to save camera name", "WARNING: warning: *",
                          "ERROR: Failed to save default value of 'zoom_degree' to file: *"});
        EXPECT_EQ(file_text(path), before);
        set_read_only(false);
        persistent_set_tilt_offset(1.5); // the next save that succeeds writes them all
        EXPECT_NE(file_text(path).find("pan_offset=-20\ntilt_offset=1.5\n"), std::string::npos);
        EXPECT_NE(file_text(path).find("\nname=cam\nzoom_degree=50\n"), std::string::npos);
        EXPECT_NE(file_text(path).find("\nenabled=true\n"), std::string::npos);
}

} // namespace
