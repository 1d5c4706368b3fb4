// The CGI in-process: set up the way start-up does (systemd's socket on descriptor 3), with
// the real settings store, configuration file (the sandbox's private directory) and
// scene intake (a radar served in-process), driven over HTTP by a client thread while
// this thread runs the main loop.
#include "cgi.h"
#include "json_post.h"
#include "in_process_provider.h"
#include "log_capture.h"
#include "persistent.h"
#include "radar_metadata.h"
#include "settings_load.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int systemd_fd = 3;

// systemd's listening socket on descriptor 3, put there before anything in the process
// opens a descriptor (whatever is there was inherited, e.g. from the test runner); the
// path is for the client.
std::string hand_over_socket(void)
{
        gchar *dir = g_dir_make_tmp("cgi-test-XXXXXX", nullptr);
        std::string path = std::string(dir) + "/cgi.sock";
        g_free(dir);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        g_strlcpy(address.sun_path, path.c_str(), sizeof(address.sun_path));
        if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 || listen(fd, 16) != 0)
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

// Runs the request on a client thread while this thread serves it.
HttpAnswer serve(const std::string &body)
{
        HttpAnswer answer;
        std::atomic<bool> done = false;
        std::thread client([&] {
                answer = cgi_post(socket_path, body);
                done = true;
                g_main_context_wakeup(nullptr);
        });
        while (!done)
                g_main_context_iteration(nullptr, TRUE);
        client.join();
        return answer;
}

std::string dump(const json_t *json)
{
        char *text = json_dumps(json, JSON_COMPACT | JSON_ENCODE_ANY);
        std::string copy = text ? text : "";
        free(text);
        return copy;
}

// "data:<data>" or "error:<error>" of the answer to one call.
std::string call(const std::string &method, const char *params)
{
        std::string body = R"({"apiVersion": "1.1", "method": ")" + method + "\"";
        if (params)
                body += std::string(", \"params\": ") + params;
        const HttpAnswer answer = serve(body + "}");
        for (const char *member : {"data", "error"})
                if (const json_t *value = json_object_get(answer.json.get(), member))
                        return std::string(member).append(":").append(dump(value));
        return "no envelope: " + std::to_string(answer.status) + " " + answer.body + answer.curl_error;
}

TEST(CgiSetUp, NeedsExactlyOneSocketFromSystemdThatTheLibraryCanServe)
{
        ASSERT_FALSE(socket_path.empty()) << "no listening socket";
        LogCapture log;
        g_unsetenv("LISTEN_FDS");
        EXPECT_FALSE(cgi_setup());
        hand_over_as_systemd("1");
        g_setenv("LISTEN_PID", "1", TRUE); // passed to another process
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
                                       "ERROR: Expected one file descriptor from systemd, got 0.",
                                       "ERROR: Expected one file descriptor from systemd, got " + more + ".",
                                       "ERROR: Failed to set up CGI: Socket operation on non-socket",
                               }));
}

TEST(CgiErrors, LibraryFailuresMapToApiCodesWithTheirMessages)
{
        const int mapped[] = {101, 200, 101, 100, 203, 300, 102, 300, 101, 101};
        for (int code = -8; code <= 1; code++)
                EXPECT_EQ(cgi_map_error_code(code), mapped[code + 8]) << code;
        const std::pair<int, const char *> messages[] = {
                {100, "Unsupported API version"}, {101, "Internal error"}, {102, "Mandatory parameter(s) missing"},
                {103, "Unknown parameter supplied"}, {200, "JSON input error"}, {201, "Unexpected error"},
                {202, "Generic error"}, {203, "Invalid method"}, {300, "Faulty parameter"}, {301, "Invalid state"},
                {0, "Internal error"}, {302, "Internal error"},
        };
        for (const auto &[code, message] : messages)
                EXPECT_STREQ(cgi_error_message(code), message) << code;
}

class Cgi : public ::testing::Test {
protected:
        static void SetUpTestSuite()
        {
                const std::string provider_path = socket_path + ".radar";
                g_setenv("RADAR_SCENE_PROVIDER_SOCKET", provider_path.c_str(), TRUE);
                radar_ = new InProcessProvider(provider_path, {"Raw", "RawAssociated", "Unknown", "Human",
                                                               "Vehicle", "SmallObject"});
                ASSERT_TRUE(radar_->ok()) << radar_->error();
                ASSERT_TRUE(radar_metadata_setup());
                g_unlink(TRELVO_CONF_DIR "/trelvo.conf");
                ASSERT_TRUE(persistent_setup());
                settings_load();
                hand_over_as_systemd("1");
                ASSERT_TRUE(cgi_setup());
        }
        static void TearDownTestSuite()
        {
                cgi_cleanup();
                radar_metadata_cleanup();
                settings_cleanup();
                persistent_cleanup();
                delete radar_;
                g_unlink((socket_path + ".radar").c_str());
                g_unlink(socket_path.c_str());
                g_autofree gchar *dir = g_path_get_dirname(socket_path.c_str());
                g_rmdir(dir);
        }
        static InProcessProvider *radar_;
};

InProcessProvider *Cgi::radar_ = nullptr;

struct Exchange {
        const char *method;
        const char *params; // nullptr: none
        const char *outcome;
};

void expect_exchanges(const std::vector<Exchange> &exchanges)
{
        for (const Exchange &e : exchanges)
                EXPECT_EQ(call(e.method, e.params), e.outcome) << e.method << " " << (e.params ? e.params : "");
}

constexpr const char *accepted = "data:{}";
constexpr const char *faulty = R"(error:{"code":300,"message":"Faulty parameter"})";

TEST_F(Cgi, NumbersAreCheckedAgainstTheirInclusiveRanges)
{
        expect_exchanges({
                {"getCameraMountingHeight", nullptr, R"(data:{"value":4.0,"minValue":1.0,"maxValue":16.0})"},
                {"setCameraMountingHeight", R"({"value": 1})", accepted},
                {"getCameraMountingHeight", nullptr, R"(data:{"value":1.0,"minValue":1.0,"maxValue":16.0})"},
                {"setCameraMountingHeight", R"({"value": 0.9999})",
                 R"(error:{"code":300,"message":"Invalid value '0.9999' for parameter 'value'"})"},
                {"setCameraMountingHeight", R"({"value": 16.0001})",
                 R"(error:{"code":300,"message":"Invalid value '16.0001' for parameter 'value'"})"},
                {"setCameraMountingHeight", R"({"value": "5"})", faulty},
                {"setCameraMountingHeight", R"({"height": 5})", faulty},
                {"setCameraMountingHeight", nullptr, R"(error:{"code":102,"message":"Mandatory parameter(s) missing"})"},
                {"setCameraMountingHeight", R"({"value": 16.0})", accepted},
                {"getCameraMountingHeight", nullptr, R"(data:{"value":16.0,"minValue":1.0,"maxValue":16.0})"},

                {"setCameraPanOffset", R"({"value": -360})", accepted},
                {"getCameraPanOffset", nullptr, R"(data:{"value":-360.0,"minValue":-360.0,"maxValue":360.0})"},
                {"setCameraPanOffset", R"({"value": 360.0001})",
                 R"(error:{"code":300,"message":"Invalid value '360.0001' for parameter 'value'"})"},
                {"setCameraPanOffset", R"({"value": -360.0001})",
                 R"(error:{"code":300,"message":"Invalid value '-360.0001' for parameter 'value'"})"},
                {"setCameraPanOffset", R"({"value": 360})", accepted},
                {"getCameraPanOffset", nullptr, R"(data:{"value":360.0,"minValue":-360.0,"maxValue":360.0})"},

                {"setCameraTiltOffset", R"({"value": -10})", accepted},
                {"getCameraTiltOffset", nullptr, R"(data:{"value":-10.0,"minValue":-10.0,"maxValue":10.0})"},
                {"setCameraTiltOffset", R"({"value": 10})", accepted},
                {"setCameraTiltOffset", R"({"value": "5"})", faulty},
                {"setCameraTiltOffset", R"({"value": -10.0001})",
                 R"(error:{"code":300,"message":"Invalid value '-10.0001' for parameter 'value'"})"},
                {"setCameraTiltOffset", R"({"value": 10.0001})",
                 R"(error:{"code":300,"message":"Invalid value '10.0001' for parameter 'value'"})"},
                {"getCameraTiltOffset", nullptr, R"(data:{"value":10.0,"minValue":-10.0,"maxValue":10.0})"},

                {"setCameraZoomDegree", R"({"value": 0})", accepted},
                {"getCameraZoomDegree", nullptr, R"(data:{"value":0.0,"minValue":0.0,"maxValue":100.0})"},
                {"setCameraZoomDegree", R"({"value": -0.0001})",
                 R"(error:{"code":300,"message":"Invalid value '-0.0001' for parameter 'value'"})"},
                {"setCameraZoomDegree", R"({"value": 100.0001})",
                 R"(error:{"code":300,"message":"Invalid value '100.0001' for parameter 'value'"})"},
                {"setCameraZoomDegree", R"({"value": 100})", accepted},
                {"getCameraZoomDegree", nullptr, R"(data:{"value":100.0,"minValue":0.0,"maxValue":100.0})"},

                {"getGuardTourTime", nullptr, R"(data:{"value":4.0,"minValue":1.0,"maxValue":60.0})"},
                {"setGuardTourTime", R"({"value": 1})", accepted},
                {"getGuardTourTime", nullptr, R"(data:{"value":1.0,"minValue":1.0,"maxValue":60.0})"},
                {"setGuardTourTime", R"({"value": 0.9999})",
                 R"(error:{"code":300,"message":"Invalid value '0.9999' for parameter 'value'"})"},
                {"setGuardTourTime", R"({"value": 60.0001})",
                 R"(error:{"code":300,"message":"Invalid value '60.0001' for parameter 'value'"})"},
                {"setGuardTourTime", R"({"value": 60})", accepted},
                {"getGuardTourTime", nullptr, R"(data:{"value":60.0,"minValue":1.0,"maxValue":60.0})"},

                {"getReturnToHomeTimeout", nullptr, R"(data:{"value":25,"minValue":1,"maxValue":300})"},
                {"setReturnToHomeTimeout", R"({"value": 300})", accepted},
                {"getReturnToHomeTimeout", nullptr, R"(data:{"value":300,"minValue":1,"maxValue":300})"},
                {"setReturnToHomeTimeout", R"({"value": 300.5})",
                 R"(error:{"code":300,"message":"Invalid value '300.5000' for parameter 'value'"})"},
                {"setReturnToHomeTimeout", R"({"value": 0.9999})",
                 R"(error:{"code":300,"message":"Invalid value '0.9999' for parameter 'value'"})"},
                {"setReturnToHomeTimeout", R"({"value": true})", faulty},
                {"setReturnToHomeTimeout", R"({"value": 12.9})", accepted},
                {"getReturnToHomeTimeout", nullptr, R"(data:{"value":12,"minValue":1,"maxValue":300})"},
                {"setReturnToHomeTimeout", R"({"value": 1})", accepted},
                {"getReturnToHomeTimeout", nullptr, R"(data:{"value":1,"minValue":1,"maxValue":300})"},
        });
}

TEST_F(Cgi, SwitchesTakeOnlyJsonBooleans)
{
        expect_exchanges({
                {"getTrackingEnabled", nullptr, R"(data:{"value":false})"},
                {"setTrackingEnabled", R"({"value": true})", accepted},
                {"getTrackingEnabled", nullptr, R"(data:{"value":true})"},
                {"setTrackingEnabled", R"({"value": 0})", faulty},
                {"setTrackingEnabled", R"({"value": "false"})", faulty},
                {"getTrackingEnabled", nullptr, R"(data:{"value":true})"},
                {"setTrackingEnabled", R"({"value": false})", accepted},
                {"getTrackingEnabled", nullptr, R"(data:{"value":false})"},

                {"getGuardTourEnabled", nullptr, R"(data:{"value":false})"},
                {"setGuardTourEnabled", R"({"value": null})", faulty},
                {"setGuardTourEnabled", R"({"value": true})", accepted},
                {"getGuardTourEnabled", nullptr, R"(data:{"value":true})"},

                {"getReturnToHomeEnabled", nullptr, R"(data:{"value":false})"},
                {"setReturnToHomeEnabled", R"({"value": 1})", faulty},
                {"setReturnToHomeEnabled", R"({"value": true})", accepted},
                {"getReturnToHomeEnabled", nullptr, R"(data:{"value":true})"},
        });
}

TEST_F(Cgi, ObjectTypesFollowTheRadarsClassesAndChangeOnlyWhereNamed)
{
        expect_exchanges({
                {"getCapabilities", nullptr,
                 R"(data:{"returnToHomeEnabled":{},"returnToHomeTimeout":{"minValue":1,"maxValue":300},)"
                 R"("objectTypesToTrack":{"types":["small","human","vehicle","unknown"]}})"},
                {"getObjectTypesToTrack", nullptr, R"(data:{"small":false,"human":true,"vehicle":true,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"human": false})", accepted},
                {"getObjectTypesToTrack", nullptr, R"(data:{"small":false,"human":false,"vehicle":true,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"human": 0})", faulty},
                {"setObjectTypesToTrack", R"({})", faulty},
                {"setObjectTypesToTrack", R"({"human": 0, "small": true})", accepted},
                {"getObjectTypesToTrack", nullptr, R"(data:{"small":true,"human":false,"vehicle":true,"unknown":false})"},
                {"setObjectTypesToTrack", R"({"unknown": true, "vehicle": false, "unidentified": false})", accepted},
                {"getObjectTypesToTrack", nullptr, R"(data:{"small":true,"human":false,"vehicle":false,"unknown":true})"},
        });
}

TEST_F(Cgi, CameraAddressesOfSevenOrMoreCharactersMustBeStrictDottedQuads)
{
        const std::pair<const char *, bool> addresses[] = {
                {"10.0.0.1", true},        {"0.0.0.0", true},          {"255.255.255.255", true},
                {"192.168.1.100", true},   {"", true},                 {"abc", true},
                {"1.2.3", true},           {"..1.2.", true},           {"192.168.001.10", false},
                {"1.2.3.4.", false},       {"1.2.3.4.5", false},       {"256.1.1.1", false},
                {"1.2.3.04", false},       {"1..2.3.4", false},        {".1.2.34", false},
                {"1.2.3.4 ", false},       {"1.2.3.-4", false},        {"camera.local", false},
                {"10.0.0.1000", false},    {"1.2.34", true},
        };
        for (const auto &[ip, valid] : addresses) {
                const std::string params = std::string(R"({"ip": ")") + ip + R"(", "user": "op", "pass": "pw"})";
                const std::string outcome = call("setCameraConnection", params.c_str());
                if (valid) {
                        EXPECT_EQ(outcome, accepted) << ip;
                        EXPECT_EQ(call("getCameraConnection", nullptr),
                                  std::string(R"(data:{"ip":")") + ip + R"(","user":"op","state":"disconnected"})");
                } else {
                        EXPECT_EQ(outcome, std::string(R"(error:{"code":300,"message":"Invalid value ')") + ip +
                                                   "' for parameter 'ip'\"}")
                                << ip;
                }
        }
        expect_exchanges({
                {"setCameraConnection", R"({"ip": "10.0.0.2", "user": "op"})", faulty},
                {"setCameraConnection", R"({"ip": "10.0.0.2", "user": "op", "pass": 5})", faulty},
                {"setCameraConnection", R"({"ip": null, "user": "op", "pass": "pw"})", faulty},
                {"getCameraConnection", nullptr, R"(data:{"ip":"1.2.34","user":"op","state":"disconnected"})"},
                {"saveCameraPanOffset", nullptr, R"(error:{"code":301,"message":"No camera connected"})"},
                {"saveCameraTiltOffset", nullptr, R"(error:{"code":301,"message":"No camera connected"})"},
                {"noSuchMethod", nullptr, R"(error:{"code":203,"message":"Invalid method"})"},
        });
}

} // namespace
