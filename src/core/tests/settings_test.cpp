#include "clock.h"
#include "log_capture.h"
#include "persistent.h"
#include "settings.h"
#include "settings_load.h"
#include "temp_dir.h"
#include "tracking.h"

#include <gtest/gtest.h>

namespace {

TEST(SettingsStore, HoldsItsInitialValuesUntilLoadedAndComparesTheConnectionTripleNullApartFromEmpty)
{
        gboolean small, human, vehicle, unidentified;
        settings_get_object_types(&small, &human, &vehicle, &unidentified);
        EXPECT_EQ(std::tuple(small, human, vehicle, unidentified, settings_get_return_to_home_timeout()),
                  std::tuple(0, 1, 1, 0, 25));
        EXPECT_EQ(settings_get_return_to_home_enabled(), 0);
        LogCapture log;
        settings_set_camera_connection("10.0.0.5", "admin", "s3cret");
        EXPECT_EQ(log.lines(), Lines{"INFO: Setting connection to admin@10.0.0.5"});

        // The same triple again is no change; an empty user is stored without the line.
        log.clear();
        settings_set_camera_connection("10.0.0.5", "admin", "s3cret");
        settings_set_camera_connection("10.0.0.5", "", "");

        // NULL is a different value from "": both transitions replace the triple.
        settings_set_camera_connection("10.0.0.5", "", nullptr);
        gchar *ip = g_strdup("stale"), *user = g_strdup("stale"), *pass = g_strdup("stale");
        settings_get_camera_connection(&ip, &user, &pass); // frees the stale strings
        EXPECT_EQ(pass, nullptr);

        settings_set_camera_connection("10.0.0.5", "", "");
        settings_get_camera_connection(&ip, &user, &pass);
        EXPECT_TRUE(log.lines().empty()) << "nothing logged since the first line";
        EXPECT_EQ(taken(ip) + "|" + taken(user) + "|" + taken(pass), "10.0.0.5||");
}

TEST(SettingsLoad, FileValuesReachTheStoreInOrderAndEachChannelGetsItsOwnGains)
{
        // The password is "s3cret" encrypted for the sandbox's eth0; zoom_degree is left to its default.
        ASSERT_TRUE(g_file_set_contents(TRELVO_CONF_DIR "/trelvo.conf",
                                        "[camera]\nmounting_height=7.5\npan_offset=-30.25\ntilt_offset=2.5\n"
                                        "ip=10.0.0.7\nuser=op\npass=61bb09aa7cd86abc3df65e7bb9f677e7\n"
                                        "pan_kp=2\npan_ki=0.5\npan_kd=0.25\ntilt_kp=0.5\ntilt_ki=0.25\ntilt_kd=1\n\n"
                                        "[tracking]\nreturn_to_home_enabled=true\nreturn_to_home_timeout=120\n"
                                        "small_object_track=true\nhuman_object_track=false\n"
                                        "vehicle_object_track=true\nunidentified_object_track=true\n", -1, nullptr))
                << "run inside tests/rig/sandbox (ctest does)";
        ASSERT_TRUE(persistent_setup());
        clock_use_manual(1'000'000'000);
        LogCapture log;
        settings_load();
        Lines expected = {"connection to op@10.0.0.7", "mounting height to 7.500000",
                          "object types to track - small:1, human:0, vehicle:1, unidentified:1",
                          "return to home enabled status to 1 (0=false, 1=true)", "return to home timeout to 120",
                          "pan offset to -30.250000", "tilt offset to 2.500000", "zoom degree to 50.000000"};
        for (std::string &line : expected)
                line = "INFO: Setting " + line;
        EXPECT_EQ(log.lines(), expected);
        gchar *ip = nullptr, *user = nullptr, *pass = nullptr;
        settings_get_camera_connection(&ip, &user, &pass);
        EXPECT_STREQ(pass, "s3cret");

        // First kp x e alone; a second later ki x (e + |de| / 2) x dt and kd x de / dt join it.
        float pan = 0, tilt = 0, zoom = 0;
        controller_set_target(10, -10, 1);
        controller_update(0, 0, 1);
        controller_get_speeds(&pan, &tilt, &zoom);
        EXPECT_EQ(std::pair(pan, tilt), std::pair(2 * 10.0f, 0.5f * -10.0f));
        clock_advance_us(1'000'000);
        controller_update(5, -5, 1);
        controller_get_speeds(&pan, &tilt, &zoom);
        EXPECT_EQ(pan, 2 * 5.0f + 0.5f * (5.0f + 2.5f) + 0.25f * -5.0f);
        EXPECT_EQ(tilt, 0.5f * -5.0f + 0.25f * (-5.0f + 2.5f) + 1 * 5.0f);

        // The autotune drives pan and tilt only: the zoom command stays the caller's.
        controller_autotune_start(10, 35, -10, 35, 5, 50);
        zoom = 0.5f;
        EXPECT_FALSE(controller_autotune_step(&pan, &tilt, &zoom, 20, 0, 1));
        EXPECT_EQ(std::tuple(pan, tilt, zoom), std::tuple(-35.0f, -35.0f, 0.5f));

        settings_cleanup();
        EXPECT_TRUE(!get_ptz_controller() && !get_target_tracker());
        settings_get_camera_connection(&ip, &user, &pass);
        EXPECT_TRUE(!ip && !user && !pass);
        persistent_cleanup();
        clock_use_real();
}

} // namespace
