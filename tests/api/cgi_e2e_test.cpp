// The configuration CGI of the real service over real HTTP, on the socket handed over as
// systemd does, checked against its getters, its log and its configuration file.
#include "service_process.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

namespace {

using Lines = std::vector<std::string>;

std::string dump(const json_t *json)
{
        char *text = json_dumps(json, JSON_COMPACT | JSON_ENCODE_ANY);
        std::string copy = text ? text : "";
        free(text);
        return copy;
}

// "data:<data>" or "error:<error>", else the HTTP status and body.
std::string outcome(const HttpAnswer &answer)
{
        for (const char *member : {"data", "error"})
                if (const json_t *value = json_object_get(answer.json.get(), member))
                        return std::string(member).append(":").append(dump(value));
        return std::to_string(answer.status) + " " + answer.body + answer.curl_error;
}

std::string call(const ServiceProcess &service, const std::string &method, const std::string &params = "")
{
        std::string body = R"({"apiVersion": "1.1", "method": ")" + method + "\"";
        if (!params.empty())
                body += ", \"params\": " + params;
        return outcome(service.cgi(body + "}"));
}

// A host directory for the configuration file, removed with everything in it.
struct ConfDir {
        ConfDir() : path(g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr)) {}
        ~ConfDir()
        {
                g_unlink(file().c_str());
                g_rmdir(path);
                g_free(path);
        }
        std::string file() const { return std::string(path) + "/trelvo.conf"; }
        // The key's text in the file, "(none)" when it is not there.
        std::string key(const char *group, const char *name) const
        {
                g_autoptr(GKeyFile) keys = g_key_file_new();
                g_key_file_load_from_file(keys, file().c_str(), G_KEY_FILE_NONE, nullptr);
                g_autofree gchar *value = g_key_file_get_value(keys, group, name, nullptr);
                return value ? value : "(none)";
        }
        gchar *path;
};

ServiceOptions on_conf_dir(const ConfDir &dir)
{
        ServiceOptions options;
        options.conf_dir = dir.path;
        return options;
}

void stop(ServiceProcess &service)
{
        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
}

constexpr const char *accepted = "data:{}";

// The getters that read the settings store: what a restart must bring back.
void expect_stored_settings(const ServiceProcess &service)
{
        EXPECT_EQ(call(service, "getCameraMountingHeight"), R"(data:{"value":5.5,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(call(service, "getCameraPanOffset"), R"(data:{"value":-12.25,"minValue":-360.0,"maxValue":360.0})");
        EXPECT_EQ(call(service, "getCameraTiltOffset"), R"(data:{"value":2.5,"minValue":-10.0,"maxValue":10.0})");
        EXPECT_EQ(call(service, "getCameraZoomDegree"), R"(data:{"value":75.0,"minValue":0.0,"maxValue":100.0})");
        EXPECT_EQ(call(service, "getReturnToHomeEnabled"), R"(data:{"value":true})");
        EXPECT_EQ(call(service, "getReturnToHomeTimeout"), R"(data:{"value":42,"minValue":1,"maxValue":300})");
        // The camera at 10.0.0.7 is out of reach: the state is wherever the link has got to.
        const std::string connection = call(service, "getCameraConnection");
        EXPECT_EQ(connection.rfind(R"(data:{"ip":"10.0.0.7","user":"op","state":")", 0), 0u) << connection;
}

TEST(CgiEndToEnd, EverySetterAppliesThenPersistsAcrossARestart)
{
        ConfDir dir;
        {
                ServiceProcess service(on_conf_dir(dir));
                ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
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
                        {"setCameraConnection", R"({"ip": "10.0.0.7", "user": "op", "pass": "s3cret"})"},
                };
                for (const auto &[method, params] : changes)
                        EXPECT_EQ(call(service, method, params), accepted) << method;
                expect_stored_settings(service);
                EXPECT_EQ(call(service, "getGuardTourEnabled"), R"(data:{"value":true})");
                EXPECT_EQ(call(service, "getGuardTourTime"), R"(data:{"value":7.5,"minValue":1.0,"maxValue":60.0})");
                EXPECT_EQ(call(service, "getTrackingEnabled"), R"(data:{"value":true})");
                // Without a radar the service knows no classes, so it offers none.
                EXPECT_EQ(call(service, "getObjectTypesToTrack"), "data:{}");
                EXPECT_EQ(service.matching("INFO: Setting object types").back(),
                          "trelvo: INFO: Setting object types to track - small:1, human:1, vehicle:0, unidentified:0");
                stop(service);
        }
        struct Key {
                const char *group, *name, *value;
        };
        const Key keys[] = {
                {"camera", "mounting_height", "5.5"},
                {"camera", "pan_offset", "-12.25"},
                {"camera", "tilt_offset", "2.5"},
                {"camera", "zoom_degree", "75"},
                {"camera", "ip", "10.0.0.7"},
                {"camera", "user", "op"},
                {"tracking", "return_to_home_enabled", "true"},
                {"tracking", "return_to_home_timeout", "42"},
                {"tracking", "small_object_track", "true"},
                {"tracking", "human_object_track", "true"},
                {"tracking", "vehicle_object_track", "false"},
                {"tracking", "unidentified_object_track", "false"},
                {"tracking", "guard_tour_enabled", "true"},
                {"tracking", "guard_tour_time", "7.5"},
                {"tracking", "enabled", "true"},
        };
        for (const Key &key : keys)
                EXPECT_EQ(dir.key(key.group, key.name), key.value) << key.name;
        // The password is stored encrypted: hex text, never the plain one.
        const std::string pass = dir.key("camera", "pass");
        EXPECT_TRUE(pass.size() >= 32 && pass.find_first_not_of("0123456789abcdef") == std::string::npos) << pass;

        ServiceProcess restarted(on_conf_dir(dir));
        ASSERT_TRUE(restarted.wait_for_line("DEBUG: Running"));
        expect_stored_settings(restarted);
        stop(restarted);
}

// Each change reaches its owner first and is then saved; a save that fails is logged
// and the request still succeeds, with the value in force.
TEST(CgiEndToEnd, AFailedSaveIsLoggedAfterTheChangeAndDoesNotFailTheRequest)
{
        ConfDir dir;
        {
                ServiceProcess first(on_conf_dir(dir)); // writes the complete file
                ASSERT_TRUE(first.wait_for_line("DEBUG: Running"));
                stop(first);
        }
        ServiceOptions options = on_conf_dir(dir);
        options.conf_read_only = true;
        ServiceProcess service(options);
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        EXPECT_EQ(call(service, "setCameraMountingHeight", R"({"value": 9})"), accepted);
        EXPECT_EQ(call(service, "getCameraMountingHeight"), R"(data:{"value":9.0,"minValue":1.0,"maxValue":16.0})");
        const Lines lines = service.lines();
        const auto set = std::find(lines.begin(), lines.end(), "trelvo: INFO: Setting mounting height to 9.000000");
        const auto failed = std::find(lines.begin(), lines.end(), "trelvo: WARNING: Failed to save camera mounting height");
        EXPECT_TRUE(set != lines.end() && failed != lines.end() && set < failed) << service.matching("mounting height").size();
        EXPECT_EQ(dir.key("camera", "mounting_height"), "4");
        stop(service);
}

// The same triple again changes nothing in the store (no log line), but is saved anew.
TEST(CgiEndToEnd, TheStoredConnectionAgainIsSavedWithoutALogLine)
{
        ConfDir dir;
        ServiceProcess service(on_conf_dir(dir));
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const std::string triple = R"({"ip": "10.0.0.7", "user": "op", "pass": "s3cret"})";
        EXPECT_EQ(call(service, "setCameraConnection", triple), accepted);
        const std::string pass = dir.key("camera", "pass");
        g_autoptr(GKeyFile) keys = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_file(keys, dir.file().c_str(), G_KEY_FILE_NONE, nullptr));
        for (const char *key : {"ip", "user", "pass"})
                g_key_file_remove_key(keys, "camera", key, nullptr);
        ASSERT_TRUE(g_key_file_save_to_file(keys, dir.file().c_str(), nullptr));

        EXPECT_EQ(call(service, "setCameraConnection", triple), accepted);
        EXPECT_EQ(service.matching("Setting connection"), Lines{"trelvo: INFO: Setting connection to op@10.0.0.7"});
        EXPECT_EQ(dir.key("camera", "ip"), "10.0.0.7");
        EXPECT_EQ(dir.key("camera", "user"), "op");
        EXPECT_EQ(dir.key("camera", "pass"), pass);
        stop(service);
}

TEST(CgiEndToEnd, ObjectTypesAreThoseOfTheClassesTheRadarOffers)
{
        g_autofree gchar *dir = g_dir_make_tmp("trelvo-radar-XXXXXX", nullptr);
        const std::string socket = std::string(dir) + "/scene-provider.sock";
        const std::string scenario = std::string(dir) + "/scenario.json";
        ASSERT_TRUE(g_file_set_contents(scenario.c_str(),
                                        R"({"classes": ["Raw", "RawAssociated", "Human", "Vehicle"], "objects": []})",
                                        -1, nullptr));
        {
                ChildProcess radar({SIM_RADAR, "--socket", socket, scenario});
                ASSERT_TRUE(radar.wait_for_line("sim-radar: serving"));
                ServiceOptions options;
                options.environment = {"RADAR_SCENE_PROVIDER_SOCKET=" + socket};
                ServiceProcess service(options);
                ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
                EXPECT_EQ(call(service, "getCapabilities"),
                          R"(data:{"returnToHomeEnabled":{},"returnToHomeTimeout":{"minValue":1,"maxValue":300},)"
                          R"("objectTypesToTrack":{"types":["human","vehicle"]}})");
                EXPECT_EQ(call(service, "getObjectTypesToTrack"), R"(data:{"human":true,"vehicle":true})");
                EXPECT_EQ(call(service, "setObjectTypesToTrack", R"({"human": false})"), accepted);
                EXPECT_EQ(call(service, "getObjectTypesToTrack"), R"(data:{"human":false,"vehicle":true})");
                stop(service);
                radar.send_signal(SIGTERM);
                EXPECT_EQ(radar.wait_exit(), 0);
        }
        g_unlink(socket.c_str());
        g_unlink(scenario.c_str());
        g_rmdir(dir);
}

int connect_silently(const std::string &path)
{
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        g_strlcpy(address.sun_path, path.c_str(), sizeof(address.sun_path));
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        return fd;
}

// Whatever arrives gets its error, nothing changes, and a client that never speaks
// holds up no one.
TEST(CgiEndToEnd, BadRequestsGetTheirErrorsWhileASilentClientWaits)
{
        ServiceProcess service;
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const int silent = connect_silently(service.cgi_socket_path());
        const size_t loaded = service.matching("INFO: Setting ").size();
        const std::string json_error = R"(error:{"code":200,"message":"JSON input error"})";
        const std::string faulty = R"(error:{"code":300,"message":"Faulty parameter"})";
        const std::string get = R"({"apiVersion": "1.1", "method": "getCameraMountingHeight"})";
        const std::pair<std::string, std::string> exchanges[] = {
                {"apiVersion=1.1&method=get", json_error},
                {R"(["getCameraMountingHeight"])", json_error},
                {std::string(100000, '[') + std::string(100000, ']'), "413 "},
                {R"({"apiVersion": "1.1", "method": "setCameraMountingHeight", "params": {"value": )" +
                         std::string(5000, '[') + std::string(5000, ']') + "}}",
                 json_error},
                {"{\"apiVersion\": \"1.1\", \"method\": \"setCameraConnection\", \"params\": "
                 "{\"ip\": \"\", \"user\": \"op\xe9\", \"pass\": \"\"}}",
                 json_error},
                {get + std::string(64 * 1024, ' '), "413 "},
                {R"({"apiVersion": "2.0", "method": "getCameraMountingHeight"})",
                 R"(error:{"code":100,"message":"Unsupported API version"})"},
                {R"({"apiVersion": "1.1", "method": "setMountingHeight", "params": {"value": 5}})",
                 R"(error:{"code":203,"message":"Invalid method"})"},
                {R"({"apiVersion": "1.1", "method": "setCameraMountingHeight"})",
                 R"(error:{"code":102,"message":"Mandatory parameter(s) missing"})"},
                {R"({"apiVersion": "1.1", "method": "setCameraMountingHeight", "params": [5]})", faulty},
                {R"({"apiVersion": "1.1", "params": {"value": 5}})", faulty},
                {R"({"apiVersion": "1.1", "method": "setCameraMountingHeight", "params": {"value": 17}})",
                 R"(error:{"code":300,"message":"Invalid value '17.0000' for parameter 'value'"})"},
                {R"({"apiVersion": "1.1", "method": "saveCameraPanOffset"})",
                 R"(error:{"code":301,"message":"No camera connected"})"},
                {R"({"apiVersion": "1.1", "method": "saveCameraTiltOffset"})",
                 R"(error:{"code":301,"message":"No camera connected"})"},
        };
        for (const auto &[body, expected] : exchanges)
                EXPECT_EQ(outcome(service.cgi(body)), expected) << body.substr(0, 100);
        EXPECT_EQ(outcome(service.cgi(get)), R"(data:{"value":4.0,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(service.matching("INFO: Setting ").size(), loaded); // nothing changed
        EXPECT_EQ(service.cgi(R"({"apiVersion": "1.1", "context": {"n": [1]}, "method": "getGuardTourEnabled"})").body,
                  R"({"apiVersion":"1.1","context":{"n":[1]},"method":"getGuardTourEnabled","data":{"value":false}})");
        close(silent);
        stop(service);
}

TEST(CgiEndToEnd, WithoutItsSocketTheServiceStopsAtTheCgi)
{
        ServiceOptions options;
        options.cgi_socket = false;
        ServiceProcess service(options);
        EXPECT_EQ(service.wait_exit(), 1);
        EXPECT_EQ(service.matching("ERROR"), (Lines{"trelvo: ERROR: Expected one file descriptor from systemd, got 0.",
                                                    "trelvo: ERROR: Failed to init cgi"}));
        const Lines setups = service.matching("Setting up: ");
        ASSERT_FALSE(setups.empty());
        EXPECT_EQ(setups.back(), "trelvo: DEBUG: Setting up: cgi_setup");
        EXPECT_EQ(service.matching("Tearing down: cgi_cleanup").size(), 1u);
}

} // namespace
