#include "log_capture.h"
#include "settings.h"

#include <gtest/gtest.h>

namespace {

// Must run before any test sets a value: the store is one process-wide instance.
TEST(SettingsStoreFresh, GettersReturnInitialValuesBeforeLoad)
{
        EXPECT_EQ(settings_get_mounting_height(), 4.0);
        EXPECT_EQ(settings_get_zoom_degree(), 100.0);
        EXPECT_EQ(settings_get_pan_offset(), 0.0);
        EXPECT_EQ(settings_get_tilt_offset(), 0.0);
        EXPECT_EQ(settings_get_return_to_home_enabled(), FALSE);
        EXPECT_EQ(settings_get_return_to_home_timeout(), 25);
        gboolean small = -1, human = -1, vehicle = -1, unidentified = -1;
        settings_get_object_types(&small, &human, &vehicle, &unidentified);
        EXPECT_EQ(small, FALSE);
        EXPECT_EQ(human, TRUE);
        EXPECT_EQ(vehicle, TRUE);
        EXPECT_EQ(unidentified, FALSE);

        gchar *ip = nullptr, *user = nullptr, *pass = nullptr;
        settings_get_camera_connection(&ip, &user, &pass);
        EXPECT_EQ(ip, nullptr);
        EXPECT_EQ(user, nullptr);
        EXPECT_EQ(pass, nullptr);
}

TEST(SettingsStore, SettersLogTheirLineBeforeStoring)
{
        LogCapture log;
        settings_set_mounting_height(6.5);
        settings_set_return_to_home_enabled(TRUE);
        settings_set_object_types(TRUE, FALSE, TRUE, FALSE);
        settings_set_return_to_home_timeout(300);
        settings_set_pan_offset(-12.25);
        settings_set_tilt_offset(3.0);
        settings_set_zoom_degree(50.0);

        const std::vector<std::string> expected = {
                "INFO: Setting mounting height to 6.500000",
                "INFO: Setting return to home enabled status to 1 (0=false, 1=true)",
                "INFO: Setting object types to track - small:1, human:0, vehicle:1, unidentified:0",
                "INFO: Setting return to home timeout to 300",
                "INFO: Setting pan offset to -12.250000",
                "INFO: Setting tilt offset to 3.000000",
                "INFO: Setting zoom degree to 50.000000",
        };
        EXPECT_EQ(log.lines(), expected);

        EXPECT_EQ(settings_get_mounting_height(), 6.5);
        EXPECT_EQ(settings_get_return_to_home_enabled(), TRUE);
        EXPECT_EQ(settings_get_return_to_home_timeout(), 300);
        EXPECT_EQ(settings_get_pan_offset(), -12.25);
        EXPECT_EQ(settings_get_tilt_offset(), 3.0);
        EXPECT_EQ(settings_get_zoom_degree(), 50.0);
        gboolean small, human, vehicle, unidentified;
        settings_get_object_types(&small, &human, &vehicle, &unidentified);
        EXPECT_EQ((std::vector<gboolean>{small, human, vehicle, unidentified}),
                  (std::vector<gboolean>{TRUE, FALSE, TRUE, FALSE}));
}

TEST(SettingsStore, ConnectionTripleComparesNullApartFromEmptyAndNeverLogsThePassword)
{
        LogCapture log;
        settings_set_camera_connection("10.0.0.5", "admin", "s3cret");
        EXPECT_EQ(log.lines(), std::vector<std::string>{"INFO: Setting connection to admin@10.0.0.5"});

        // The same triple again: nothing replaced, nothing logged.
        log.clear();
        settings_set_camera_connection("10.0.0.5", "admin", "s3cret");
        EXPECT_TRUE(log.lines().empty());

        // An empty ip or user is stored without the line.
        settings_set_camera_connection("", "admin", "s3cret");
        settings_set_camera_connection("10.0.0.5", "", "");
        EXPECT_TRUE(log.lines().empty());

        // NULL is a different value from "": both transitions replace the triple.
        settings_set_camera_connection("10.0.0.5", "", nullptr);
        gchar *ip = g_strdup("stale"), *user = g_strdup("stale"), *pass = g_strdup("stale");
        settings_get_camera_connection(&ip, &user, &pass); // frees the stale strings
        EXPECT_STREQ(ip, "10.0.0.5");
        EXPECT_STREQ(user, "");
        EXPECT_EQ(pass, nullptr);

        settings_set_camera_connection("10.0.0.5", "", "");
        settings_get_camera_connection(&ip, &user, &pass);
        EXPECT_STREQ(pass, "");

        for (const std::string &line : log.lines())
                EXPECT_EQ(line.find("s3cret"), std::string::npos) << line;
        g_free(ip);
        g_free(user);
        g_free(pass);
}

TEST(SettingsStore, ConnectionIsCopiedInAndOut)
{
        gchar ip[] = "192.168.0.90";
        gchar user[] = "operator";
        gchar pass[] = "pw";
        settings_set_camera_connection(ip, user, pass);
        ip[0] = 'X';
        user[0] = 'X';
        pass[0] = 'X';

        gchar *out_ip = nullptr, *out_user = nullptr, *out_pass = nullptr;
        settings_get_camera_connection(&out_ip, &out_user, &out_pass);
        EXPECT_STREQ(out_ip, "192.168.0.90");
        EXPECT_STREQ(out_user, "operator");
        EXPECT_STREQ(out_pass, "pw");
        out_ip[0] = 'Y';

        gchar *again_ip = nullptr, *again_user = nullptr, *again_pass = nullptr;
        settings_get_camera_connection(&again_ip, &again_user, &again_pass);
        EXPECT_STREQ(again_ip, "192.168.0.90");
        for (gchar *s : {out_ip, out_user, out_pass, again_ip, again_user, again_pass})
                g_free(s);
}

} // namespace
