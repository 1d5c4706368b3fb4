// The CGI in-process: set up the way start-up does (systemd's socket on descriptor 3), with
// the real settings store, configuration file (the sandbox's private directory) and
// scene intake (a radar served in-process), driven over HTTP by a client thread while
// this thread runs the main loop. Every change is read back and found in the file.
#include "camera.h"
#include "camera_connection.h"
#include "cgi.h"
#include "child_process.h"
#include "json_post.h"
#include "in_process_provider.h"
#include "log_capture.h"
#include "persistent.h"
#include "radar_metadata.h"
#include "settings_load.h"
#include "sim_camera_process.h"
#include "temp_dir.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <tuple>
#include <unistd.h>

namespace {

constexpr int systemd_fd = 3;
constexpr const char *conf_file = TRELVO_CONF_DIR "/trelvo.conf";

// systemd's listening socket on descriptor 3, put there before anything in the process
// opens a descriptor (whatever is there was inherited, e.g. from the test runner); the
// path is for the client. Its directory goes at exit.
std::string hand_over_socket(void)
{
        static const TempDir dir{"cgi-test"};
        const std::string path = dir.file("cgi.sock");
        const int fd = unix_listen(path);
        if (fd < 0)
                return "";
        if (fd != systemd_fd) {
                dup2(fd, systemd_fd);
                close(fd);
        }
        return path;
}

const std::string socket_path = hand_over_socket();

void hand_over_as_systemd(const char *fds)
{
        g_setenv("LISTEN_PID", std::to_string(getpid()).c_str(), TRUE);
        g_setenv("LISTEN_FDS", fds, TRUE);
}

// The outcome of one call (see cgi_outcome), served by this thread while a client
// thread asks.
std::string call(const std::string &method, const char *params = nullptr)
{
        HttpAnswer got;
        serve_while([&] { got = cgi_post(socket_path, cgi_call_body(method, params)); });
        EXPECT_EQ(json_member_text(got.json.get(), "apiVersion"), "1.1") << method << ": the version that answered";
        return cgi_outcome(got);
}

TEST(CgiSetUp, NeedsExactlyOneSocketFromSystemdThatTheLibraryCanServe)
{
        ASSERT_FALSE(socket_path.empty()) << "no listening socket";
        LogCapture log;
        g_unsetenv("LISTEN_FDS");
        EXPECT_FALSE(cgi_setup());
        // More than one: every descriptor from 3 up to the lowest free one is open.
        const int lowest_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
        const std::string more = std::to_string(lowest_free - systemd_fd + 1);
        hand_over_as_systemd(more.c_str());
        EXPECT_FALSE(cgi_setup());
        close(lowest_free);

        // A descriptor 3 that is no socket.
        const int saved = dup(systemd_fd);
        int pipe_fds[2];
        ASSERT_EQ(pipe(pipe_fds), 0);
        dup2(pipe_fds[0], systemd_fd);
        hand_over_as_systemd("1");
        EXPECT_FALSE(cgi_setup());
        dup2(saved, systemd_fd);
        for (int fd : {saved, pipe_fds[0], pipe_fds[1]})
                close(fd);
        cgi_cleanup(); // nothing was set up
        EXPECT_EQ(log.lines(), (std::vector<std::string>{
                                       "ERROR: Expected one file descriptor from systemd, got 0.",
                                       "ERROR: Expected one file descriptor from systemd, got " + more + ".",
                                       "ERROR: Failed to set up CGI: Socket operation on non-socket",
                               }));
}

TEST(CgiErrors, LibraryFailuresMapToApiCodesAndEveryCodeHasItsText)
{
        const int mapped[] = {101, 200, 101, 100, 203, 300, 102, 300, 101, 101};
        for (int code = -8; code <= 1; code++)
                EXPECT_EQ(cgi_map_error_code(code), mapped[code + 8]) << code;
        const std::pair<int, const char *> texts[] = {
                {100, "Unsupported API version"}, {101, "Internal error"}, {102, "Mandatory parameter(s) missing"},
                {103, "Unknown parameter supplied"}, {200, "JSON input error"}, {201, "Unexpected error"},
                {202, "Generic error"}, {203, "Invalid method"}, {300, "Faulty parameter"}, {301, "Invalid state"},
                {302, "Internal error"}};
        for (const auto &[code, text] : texts)
                EXPECT_STREQ(cgi_error_message(code), text) << code;
}

// The radar offers every class but vehicles.
class Cgi : public ::testing::Test {
protected:
        static void SetUpTestSuite()
        {
                const std::string provider_path = socket_path + ".radar";
                g_setenv("RADAR_SCENE_PROVIDER_SOCKET", provider_path.c_str(), TRUE);
                radar_ = new InProcessProvider(provider_path, {"Raw", "RawAssociated", "Unknown", "Human", "SmallObject"});
                ASSERT_TRUE(radar_->ok()) << radar_->error();
                ASSERT_TRUE(radar_metadata_setup());
                g_unlink(conf_file);
                ASSERT_TRUE(persistent_setup());
                settings_load();
                hand_over_as_systemd("1");
                ASSERT_TRUE(cgi_setup());
        }
        static void TearDownTestSuite()
        {
                cgi_cleanup();
                // All it held goes with it (the leak checker sees a handle lost to a second set-up).
                EXPECT_TRUE(cgi_setup());
                cgi_cleanup();
                const int client = unix_connect(socket_path);
                EXPECT_FALSE(g_main_context_iteration(nullptr, FALSE)) << "a client wakes no watch left behind";
                close(client);
                radar_metadata_cleanup();
                settings_cleanup();
                persistent_cleanup();
                delete radar_;
        }
        static InProcessProvider *radar_;
};

InProcessProvider *Cgi::radar_ = nullptr;

struct Exchange {
        std::string method;
        std::string params; // "": none
        std::string outcome;
};

void expect_exchanges(const std::vector<Exchange> &exchanges)
{
        for (const Exchange &e : exchanges)
                EXPECT_EQ(call(e.method, e.params.empty() ? nullptr : e.params.c_str()), e.outcome)
                        << e.method << " " << e.params;
}

constexpr const char *accepted = "data:{}";
constexpr const char *faulty = R"(error:{"code":300,"message":"Faulty parameter"})";

std::string saved(const char *group, const char *key)
{
        return key_file_value(conf_file, group, key);
}

std::string out_of_range(const std::string &value, const char *parameter = "value")
{
        return R"(error:{"code":300,"message":"Invalid value ')" + value + "' for parameter '" + parameter + "'\"}";
}

// Each bound is accepted, read back with the range and saved; a step beyond it is refused
// by name.
TEST_F(Cgi, NumbersAreCheckedAgainstTheirInclusiveRanges)
{
        struct Ranged {
                std::string name, min, max, below, above;
                const char *group, *key;
        };
        const Ranged settings[] = {
                {"CameraMountingHeight", "1.0", "16.0", "0.9999", "16.0001", "camera", "mounting_height"},
                {"CameraPanOffset", "-360.0", "360.0", "-360.0001", "360.0001", "camera", "pan_offset"},
                {"CameraTiltOffset", "-10.0", "10.0", "-10.0001", "10.0001", "camera", "tilt_offset"},
                {"CameraZoomDegree", "0.0", "100.0", "-0.0001", "100.0001", "camera", "zoom_degree"},
                {"GuardTourTime", "1.0", "60.0", "0.9999", "60.0001", "tracking", "guard_tour_time"},
                {"ReturnToHomeTimeout", "1", "300", "0.9999", "300.0001", "tracking", "return_to_home_timeout"},
        };
        for (const Ranged &s : settings) {
                const auto value = [&](const std::string &v) { return R"({"value": )" + v + "}"; };
                const auto read = [&](const std::string &v) {
                        return R"(data:{"value":)" + v + R"(,"minValue":)" + s.min + R"(,"maxValue":)" + s.max + "}";
                };
                expect_exchanges({
                        {"set" + s.name, value(s.min), accepted},
                        {"get" + s.name, "", read(s.min)},
                        {"set" + s.name, value(s.below), out_of_range(s.below)},
                        {"set" + s.name, value(s.above), out_of_range(s.above)},
                        {"set" + s.name, value(s.max), accepted},
                        {"get" + s.name, "", read(s.max)},
                });
                const double max = g_ascii_strtod(s.max.c_str(), nullptr);
                EXPECT_EQ(g_ascii_strtod(saved(s.group, s.key).c_str(), nullptr), max) << s.key;
        }
        expect_exchanges({
                {"setCameraMountingHeight", R"({"value": "5"})", faulty},
                {"setCameraMountingHeight", "", R"(error:{"code":102,"message":"Mandatory parameter(s) missing"})"},
                {"setReturnToHomeTimeout", R"({"value": 12.9})", accepted}, // whole seconds, toward zero
                {"getReturnToHomeTimeout", "", R"(data:{"value":12,"minValue":1,"maxValue":300})"},
        });
        EXPECT_EQ(saved("tracking", "return_to_home_timeout"), "12");
}

// A save that fails is logged after the change, which stays in force, and the request
// still succeeds. (That the next save holds every change is persistent_test's.)
TEST_F(Cgi, AChangeWhoseSaveFailsIsAppliedAndAnswered)
{
        // Read-only stops root too; the sandbox's tmpfs is ours to remount.
        ASSERT_EQ(mount(nullptr, TRELVO_CONF_DIR, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
        LogCapture log;
        expect_exchanges({
                {"setCameraMountingHeight", R"({"value": 9})", accepted},
                {"getCameraMountingHeight", "", R"(data:{"value":9.0,"minValue":1.0,"maxValue":16.0})"},
        });
        mount(nullptr, TRELVO_CONF_DIR, nullptr, MS_REMOUNT | MS_BIND, nullptr);
        EXPECT_EQ(log.matching("mounting height"), (std::vector<std::string>{"INFO: Setting mounting height to 9.000000",
                                                                             "WARNING: Failed to save camera mounting height"}));
}

TEST_F(Cgi, SwitchesTakeOnlyJsonBooleans)
{
        const std::tuple<std::string, const char *, const char *> switches[] = {
                {"TrackingEnabled", "0", "enabled"},
                {"GuardTourEnabled", "null", "guard_tour_enabled"},
                {"ReturnToHomeEnabled", R"("true")", "return_to_home_enabled"},
        };
        for (const auto &[name, not_boolean, key] : switches) {
                const size_t subscriptions = radar_->publisher().accepted();
                expect_exchanges({
                        {"get" + name, "", R"(data:{"value":false})"},
                        {"set" + name, std::string(R"({"value": )") + not_boolean + "}", faulty},
                        {"set" + name, R"({"value": true})", accepted},
                        {"get" + name, "", R"(data:{"value":true})"},
                });
                EXPECT_EQ(saved("tracking", key), "true") << key;
                EXPECT_TRUE(name != "TrackingEnabled" ||
                            iterate_until([&] { return radar_->publisher().accepted() > subscriptions; }))
                        << "tracking on subscribes to the scenes";
                expect_exchanges({
                        {"set" + name, R"({"value": false})", accepted},
                        {"get" + name, "", R"(data:{"value":false})"},
                });
        }
}

TEST_F(Cgi, ObjectTypesFollowTheRadarsClassesAndChangeOnlyWhereNamed)
{
        expect_exchanges({
                {"getCapabilities", "",
                 R"(data:{"returnToHomeEnabled":{},"returnToHomeTimeout":{"minValue":1,"maxValue":300},)"
                 R"("objectTypesToTrack":{"types":["small","human","unknown"]}})"},
                {"getObjectTypesToTrack", "", R"(data:{"small":false,"human":true,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"human": false})", accepted},
                {"getObjectTypesToTrack", "", R"(data:{"small":false,"human":false,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"human": 0})", faulty},
                {"setObjectTypesToTrack", R"({"human": 0, "small": true})", accepted},
                {"getObjectTypesToTrack", "", R"(data:{"small":true,"human":false,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"unknown": true, "small": false, "unidentified": false})", accepted},
                {"getObjectTypesToTrack", "", R"(data:{"small":false,"human":false,"unknown":true})"},
        });
        EXPECT_EQ(saved("tracking", "small_object_track") + saved("tracking", "human_object_track") +
                          saved("tracking", "unidentified_object_track"),
                  "falsefalsetrue");
}

TEST_F(Cgi, CameraAddressesOfSevenOrMoreCharactersMustBeStrictDottedQuads)
{
        const std::pair<const char *, bool> addresses[] = {
                {"10.0.0.1", true},    {"0.0.0.0", true},      {"255.255.255.255", true}, {"", true},
                {"01.2.34", false},    {"1.2.3.4.", false},    {"256.1.1.1", false},      {"1..2.3.4", false},
                {"10.20.30", false},   {"1.2.3.4 ", false},    {"1.2.34", true},
        };
        for (const auto &[ip, valid] : addresses) {
                const std::string params = std::string(R"({"ip": ")") + ip + R"(", "user": "op", "pass": "pw"})";
                EXPECT_EQ(call("setCameraConnection", params.c_str()), valid ? accepted : out_of_range(ip, "ip")) << ip;
        }
        expect_exchanges({
                {"setCameraConnection", R"({"ip": "10.0.0.2", "pass": "pw"})", faulty},
                {"setCameraConnection", R"({"ip": "10.0.0.2", "user": "op", "pass": 5})", faulty},
                {"setCameraConnection", R"({"ip": null, "user": "op", "pass": "pw"})", faulty},
                {"getCameraConnection", "", R"(data:{"ip":"1.2.34","user":"op","state":"disconnected"})"},
                {"saveCameraPanOffset", "", R"(error:{"code":301,"message":"No camera connected"})"},
                {"saveCameraTiltOffset", "", R"(error:{"code":301,"message":"No camera connected"})"},
        });

        // The same connection again is saved anew.
        g_autoptr(GKeyFile) file = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_file(file, conf_file, G_KEY_FILE_NONE, nullptr));
        ASSERT_TRUE(g_key_file_remove_group(file, "camera", nullptr));
        ASSERT_TRUE(g_key_file_save_to_file(file, conf_file, nullptr));
        EXPECT_EQ(call("setCameraConnection", R"({"ip": "1.2.34", "user": "op", "pass": "pw"})"), accepted);
        EXPECT_EQ(saved("camera", "ip") + " " + saved("camera", "user"), "1.2.34 op");
        EXPECT_EQ(saved("camera", "pass").find_first_not_of("0123456789abcdef"), std::string::npos) << "encrypted";

        // The link connects to a new address at its next tick; connected, the offsets are
        // taken from where the camera points.
        SimCameraProcess camera({"--metadata", "no"});
        persistent_set_camera_name("ZPT-6100");
        ptz_control_setup();
        ptz_control_tick(nullptr);
        EXPECT_EQ(call("setCameraConnection", R"({"ip": "127.0.0.1", "user": "root", "pass": "pass"})"), accepted);
        ptz_control_tick(nullptr);
        ASSERT_TRUE(camera.teleport(30.5, -5.5, 1.0));
        position_poll_tick(nullptr);
        ASSERT_EQ(camera_connection_state(), CAMERA_CONNECTED);
        expect_exchanges({
                {"saveCameraPanOffset", "", accepted},
                {"saveCameraTiltOffset", "", accepted},
                {"getCameraTiltOffset", "", R"(data:{"value":-5.5,"minValue":-10.0,"maxValue":10.0})"},
        });
        EXPECT_EQ(saved("camera", "pan_offset") + " " + saved("camera", "tilt_offset"), "30.5 -5.5");
        ptz_control_teardown();
}

} // namespace
