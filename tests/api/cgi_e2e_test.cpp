// The configuration CGI of the real service over real HTTP, on the socket handed over as
// systemd does: what only the whole service shows, checked against its log and its
// configuration file. The API's validation is cgi_test's, the library's rcgi_test's.
#include "service_process.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

namespace {

using Lines = std::vector<std::string>;

std::string call(const ServiceProcess &service, const std::string &method, const char *params = nullptr)
{
        return cgi_outcome(service.cgi(cgi_call_body(method, params)));
}

// A host directory for the configuration file, removed with everything in it.
struct ConfDir {
        ConfDir() : path(g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr)) {}
        ~ConfDir()
        {
                g_unlink(file().c_str());
                g_unlink((file() + ".damaged").c_str());
                g_rmdir(path);
                g_free(path);
        }
        std::string file() const { return std::string(path) + "/trelvo.conf"; }
        std::string text(const std::string &name) const
        {
                g_autofree gchar *data = nullptr;
                g_file_get_contents(name.c_str(), &data, nullptr, nullptr);
                return data ? data : "";
        }
        // The key's text in the file, "(none)" when it is not there.
        std::string key(const char *group, const char *name) const
        {
                g_autoptr(GKeyFile) keys = g_key_file_new();
                g_key_file_load_from_file(keys, file().c_str(), G_KEY_FILE_NONE, nullptr);
                g_autofree gchar *value = g_key_file_get_value(keys, group, name, nullptr);
                return value ? value : "(none)";
        }
        // A service on this directory, once it runs.
        std::unique_ptr<ServiceProcess> start(bool read_only = false) const
        {
                ServiceOptions options;
                options.conf_dir = path;
                options.conf_read_only = read_only;
                auto service = std::make_unique<ServiceProcess>(options);
                EXPECT_TRUE(service->wait_for_line("DEBUG: Running"));
                return service;
        }
        gchar *path;
};

constexpr const char *accepted = "data:{}";

// What each setter changed is in the file, and a restart brings it back. That a setter
// changes its owner is cgi_test's; that each loaded key reaches its owner, settings_test's.
TEST(CgiEndToEnd, EverySetterPersistsAcrossARestartAndTheSameConnectionIsSavedAgain)
{
        ConfDir dir;
        const char *connection = R"({"ip": "10.0.0.7", "user": "op", "pass": "s3cret"})";
        const std::pair<const char *, const char *> changes[] = {
                {"setCameraMountingHeight", R"({"value": 5.5})"},
                {"setCameraPanOffset", R"({"value": -12.25})"},
                {"setCameraTiltOffset", R"({"value": 2.5})"},
                {"setCameraZoomDegree", R"({"value": 75})"},
                {"setReturnToHomeEnabled", R"({"value": true})"},
                {"setReturnToHomeTimeout", R"({"value": 42.7})"},
                {"setObjectTypesToTrack", R"({"small": true, "vehicle": false})"},
                {"setGuardTourEnabled", R"({"value": true})"},
                {"setGuardTourTime", R"({"value": 7.5})"},
                {"setTrackingEnabled", R"({"value": true})"},
                {"setCameraConnection", connection},
        };
        const auto service = dir.start();
        for (const auto &[method, params] : changes)
                EXPECT_EQ(call(*service, method, params), accepted) << method;
        EXPECT_EQ(service->stop(), 0);
        const char *const keys[][3] = {
                {"camera", "mounting_height", "5.5"},       {"camera", "pan_offset", "-12.25"},
                {"camera", "tilt_offset", "2.5"},           {"camera", "zoom_degree", "75"},
                {"camera", "ip", "10.0.0.7"},               {"camera", "user", "op"},
                {"tracking", "return_to_home_enabled", "true"}, {"tracking", "return_to_home_timeout", "42"},
                {"tracking", "small_object_track", "true"}, {"tracking", "human_object_track", "true"},
                {"tracking", "vehicle_object_track", "false"}, {"tracking", "unidentified_object_track", "false"},
                {"tracking", "guard_tour_enabled", "true"}, {"tracking", "guard_tour_time", "7.5"},
                {"tracking", "enabled", "true"},
        };
        for (const auto &[group, name, value] : keys)
                EXPECT_EQ(dir.key(group, name), value) << name;
        // The password is stored encrypted: hex text, never the plain one.
        const std::string pass = dir.key("camera", "pass");
        EXPECT_TRUE(pass.size() >= 32 && pass.find_first_not_of("0123456789abcdef") == std::string::npos) << pass;

        const auto restarted = dir.start();
        EXPECT_EQ(call(*restarted, "getCameraMountingHeight"), R"(data:{"value":5.5,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(call(*restarted, "getTrackingEnabled"), R"(data:{"value":true})");
        // The camera at 10.0.0.7 is out of reach: the state is wherever the link has got to.
        const std::string state = call(*restarted, "getCameraConnection");
        EXPECT_EQ(state.rfind(R"(data:{"ip":"10.0.0.7","user":"op","state":")", 0), 0u) << state;

        // The same connection again changes nothing in the store (no log line besides the
        // loading's), but is saved anew.
        g_autoptr(GKeyFile) keys_file = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_file(keys_file, dir.file().c_str(), G_KEY_FILE_NONE, nullptr));
        for (const char *key : {"ip", "user", "pass"})
                g_key_file_remove_key(keys_file, "camera", key, nullptr);
        ASSERT_TRUE(g_key_file_save_to_file(keys_file, dir.file().c_str(), nullptr));
        EXPECT_EQ(call(*restarted, "setCameraConnection", connection), accepted);
        EXPECT_EQ(restarted->matching("Setting connection"), Lines{"trelvo: INFO: Setting connection to op@10.0.0.7"});
        EXPECT_EQ(dir.key("camera", "ip") + " " + dir.key("camera", "user") + " " + dir.key("camera", "pass"),
                  "10.0.0.7 op " + pass);
        EXPECT_EQ(restarted->stop(), 0);
}

// Each change reaches its owner first and is then saved; a save that fails is logged
// and the request still succeeds, with the value in force.
TEST(CgiEndToEnd, AFailedSaveIsLoggedAfterTheChangeAndDoesNotFailTheRequest)
{
        ConfDir dir;
        EXPECT_EQ(dir.start()->stop(), 0); // writes the complete file
        const auto service = dir.start(true);
        EXPECT_EQ(call(*service, "setCameraMountingHeight", R"({"value": 9})"), accepted);
        EXPECT_EQ(call(*service, "getCameraMountingHeight"), R"(data:{"value":9.0,"minValue":1.0,"maxValue":16.0})");
        const Lines lines = service->lines();
        const auto set = std::find(lines.begin(), lines.end(), "trelvo: INFO: Setting mounting height to 9.000000");
        const auto failed = std::find(lines.begin(), lines.end(), "trelvo: WARNING: Failed to save camera mounting height");
        EXPECT_TRUE(set != lines.end() && failed != lines.end() && set < failed) << service->matching("mounting height").size();
        EXPECT_EQ(dir.key("camera", "mounting_height"), "4");
        EXPECT_EQ(service->stop(), 0);
}

// A file damaged in the middle: the service runs on what it read before the damage and the
// defaults, saves nothing until a change, and that change keeps the damaged file beside it.
TEST(CgiEndToEnd, ADamagedFileIsKeptBesideItWhenTheFirstChangeIsSaved)
{
        ConfDir dir;
        const std::string damaged = "[camera]\nmounting_height=7.5\npan_offset=0\ntilt_offset=0\nip=\nuser=\npass=\n"
                                    "pan_kp=1\npan_ki=0\npan_kd=0\ntilt_kp=1\ntilt_ki=0\ntilt_kd=0\nname=\n"
                                    "zoom_degree=50\nzoom_correction=1\n\n@@ damage @@\n[tracking]\n"
                                    "return_to_home_timeout=120\n";
        ASSERT_TRUE(g_file_set_contents(dir.file().c_str(), damaged.c_str(), -1, nullptr));
        const auto service = dir.start();
        EXPECT_EQ(call(*service, "getCameraMountingHeight"), R"(data:{"value":7.5,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(call(*service, "getReturnToHomeTimeout"), R"(data:{"value":25,"minValue":1,"maxValue":300})");
        EXPECT_EQ(dir.text(dir.file()), damaged) << "nothing saved before a change";
        EXPECT_EQ(call(*service, "setCameraPanOffset", R"({"value": 12.5})"), accepted);
        EXPECT_EQ(dir.text(dir.file() + ".damaged"), damaged);
        EXPECT_EQ(dir.key("camera", "pan_offset") + " " + dir.key("tracking", "return_to_home_timeout"), "12.5 (none)");
        EXPECT_EQ(service->stop(), 0);
}

// Whatever arrives gets its error, nothing changes, and a client that never speaks, or
// stops half-way through its headers, holds up no one.
TEST(CgiEndToEnd, BadRequestsGetTheirErrorsWhileSilentClientsWait)
{
        ServiceProcess service;
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const int silent[] = {unix_connect(service.cgi_socket_path()), unix_connect(service.cgi_socket_path())};
        const std::string partial = "POST /zelk-cgi/trelvo.cgi HTTP/1.1\r\nHost: x\r\n";
        ASSERT_EQ(write(silent[1], partial.data(), partial.size()), static_cast<ssize_t>(partial.size()));
        const size_t loaded = service.matching("INFO: Setting ").size();
        const std::string json_error = R"(error:{"code":200,"message":"JSON input error"})";
        const std::pair<std::string, std::string> exchanges[] = {
                {"apiVersion=1.1&method=get", R"(error:{"code":200,"message":"JSON input error"})"},
                {cgi_call_body("getCameraMountingHeight"), R"(data:{"value":4.0,"minValue":1.0,"maxValue":16.0})"},
        };
        for (const auto &[body, expected] : exchanges)
                EXPECT_EQ(cgi_outcome(service.cgi(body)), expected) << body.substr(0, 100);
        EXPECT_EQ(service.matching("INFO: Setting ").size(), loaded); // nothing changed
        for (int fd : silent)
                close(fd);
        EXPECT_EQ(service.stop(), 0);
}

} // namespace
