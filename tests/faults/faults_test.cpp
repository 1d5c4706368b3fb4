// Faults injected into the running service from outside, inside the rig's sandbox: the
// metadata stream dropped again and again, the camera killed and started anew, SIGTERM in
// the middle of an autotune, and a configuration directory that runs out of space. Each
// ends in the state the service must reach by itself.
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "sim_unit.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>

namespace {

using Strings = std::vector<std::string>;

// The camera keeps the walking person of walk_20m.json in the middle of its view.
bool follows(SimCameraProcess &camera, const SimUnit &unit, const std::string &when)
{
        return camera.wait_for([&](const SimCameraStatus &s) { return std::fabs(s.pan - unit.walker_azimuth()) < 3.0; },
                               "the camera on the person " + when, 20.0);
}

// Stops the service and checks that the whole teardown ran and the camera was let go.
void stop_fully(ServiceProcess &service)
{
        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
        const Strings teardown = service.matching("Tearing down: ");
        ASSERT_EQ(teardown.size(), 9u);
        EXPECT_EQ(teardown.back(), "trelvo: DEBUG: Tearing down: settings_cleanup");
        EXPECT_EQ(service.events().states().back(), "disconnected");
        EXPECT_TRUE(service.matching("CRITICAL").empty());
}

// Position queries the camera answered with 200 since the request numbered since.
size_t answered_polls(SimCameraProcess &camera, uint64_t since)
{
        size_t count = 0;
        for (const SimCameraRequest &request : camera.requests(since))
                count += request.path == "zelk-cgi/com/ptz.cgi?query=position" && request.status == 200;
        return count;
}

TEST(Faults, FollowingSurvivesStreamDropsAndACameraRestartWithoutAnAutotune)
{
        SimUnit unit{"walk_20m.json"};
        auto camera = std::make_unique<SimCameraProcess>();
        unit.configure("pass", "name=ZPT-6100\n");
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
        ASSERT_TRUE(follows(*camera, unit, "at first"));

        // Each drop: the link reports the loss, polls, probes again and plays a new stream.
        Strings expected = {"connecting", "connected"};
        for (int drop = 0; drop < 3; drop++) {
                ASSERT_TRUE(camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 1; }, "a stream"));
                uint64_t since = 0;
                camera->requests(0, &since);
                ASSERT_TRUE(camera->set_fault("stream_drop", true));
                ASSERT_TRUE(camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 0; }, "the drop"));
                ASSERT_TRUE(camera->set_fault("stream_drop", false));
                expected.insert(expected.end(), {"disconnected", "connected"});
                ASSERT_TRUE(service->events().wait_for_states(expected));
                EXPECT_GE(answered_polls(*camera, since), 1u) << "positions polled while the stream was down";
        }
        // Every stream dropped as soon as it plays: positions come from the polls between
        // the drops, enough to find the person again after the camera was turned away.
        ASSERT_TRUE(camera->set_fault("stream_drop", true));
        ASSERT_TRUE(camera->teleport(60.0, 0.0, 1.0));
        EXPECT_TRUE(follows(*camera, unit, "while every stream drops"));
        ASSERT_TRUE(camera->set_fault("stream_drop", false));
        ASSERT_TRUE(camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 1; }, "a new stream"));
        const uint64_t packets = camera->status().rtsp_packets;
        EXPECT_TRUE(camera->wait_for([&](const SimCameraStatus &s) { return s.rtsp_packets > packets + 5; },
                                     "positions over the new stream"));
        EXPECT_TRUE(follows(*camera, unit, "after the drops"));

        // Killed: the service reports the loss and waits; started anew, turned away, it is
        // found again by the polls, with the model it knows, and follows.
        expected = service->events().states();
        ASSERT_EQ(expected.back(), "connected");
        camera.reset();
        expected.push_back("disconnected");
        ASSERT_TRUE(service->events().wait_for_states(expected));
        camera = std::make_unique<SimCameraProcess>(Strings{"--pan", "120"});
        expected.push_back("connected");
        ASSERT_TRUE(service->events().wait_for_states(expected));
        EXPECT_TRUE(follows(*camera, unit, "after the restart"));
        EXPECT_EQ(camera->status().rtsp_clients, 1u);
        EXPECT_EQ(service->events().states(), expected);
        EXPECT_EQ(std::count(expected.begin(), expected.end(), "autotune"), 0) << "a known model is not tuned again";
        stop_fully(*service);
}

TEST(Faults, SigtermDuringTheAutotuneStopsTheCameraAndSavesNothingHalfTuned)
{
        SimUnit unit{"walk_20m.json"};
        SimCameraProcess camera;
        unit.configure("pass");
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune"}));
        // The relay is switching: continuous moves with the autotune's speeds.
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return std::fabs(s.pan_speed) > 1.0; },
                                    "the relay's moves", 20.0));
        stop_fully(*service);
        EXPECT_TRUE(camera.wait_for(
                [](const SimCameraStatus &s) { return s.pan_speed == 0.0 && s.tilt_speed == 0.0 && !s.moving; },
                "the camera stopped"));

        g_autoptr(GKeyFile) keys = g_key_file_new();
        const std::string conf = unit.conf_text();
        ASSERT_TRUE(g_key_file_load_from_data(keys, conf.c_str(), conf.size(), G_KEY_FILE_NONE, nullptr)) << conf;
        g_autofree gchar *name = g_key_file_get_string(keys, "camera", "name", nullptr);
        EXPECT_TRUE(name == nullptr || *name == '\0') << "model stored as tuned: " << name;
        for (const char *key : {"pan_kp", "pan_ki", "pan_kd", "tilt_kp", "tilt_ki", "tilt_kd"}) {
                const double untuned = g_str_has_suffix(key, "kp") ? 1.0 : 0.0;
                EXPECT_EQ(g_key_file_get_double(keys, "camera", key, nullptr), untuned) << key << " in\n" << conf;
        }
}

// A tmpfs of a few pages, for a configuration directory that can be filled up.
class SmallDisk {
public:
        SmallDisk() : path_(g_dir_make_tmp("trelvo-full-XXXXXX", nullptr))
        {
                if (mount("tmpfs", path_, "tmpfs", 0, "size=64k,mode=0755") == 0)
                        mounted_ = true;
                else
                        error_ = g_strerror(errno);
        }
        ~SmallDisk()
        {
                if (mounted_)
                        umount2(path_, MNT_DETACH);
                g_rmdir(path_);
                g_free(path_);
        }
        bool mounted() const { return mounted_; }
        const std::string &error() const { return error_; }
        std::string path(const char *file = "") const { return std::string(path_) + file; }
        // Takes every free block; false when the disk did not fill.
        bool fill()
        {
                const int fd = open(path("/filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
                const std::string block(4096, 'x');
                while (fd >= 0 && write(fd, block.data(), block.size()) > 0) {
                }
                const bool full = fd >= 0 && errno == ENOSPC;
                if (fd >= 0)
                        close(fd);
                return full;
        }
        void free_space() { g_unlink(path("/filler").c_str()); }
        std::string conf_text() const
        {
                g_autofree gchar *text = nullptr;
                g_file_get_contents(path("/trelvo.conf").c_str(), &text, nullptr, nullptr);
                return text ? text : "";
        }

private:
        gchar *path_;
        bool mounted_ = false;
        std::string error_;
};

std::string call(const ServiceProcess &service, const std::string &method, const char *params)
{
        return cgi_outcome(service.cgi(cgi_call_body(method, params)));
}

TEST(Faults, ADiskFullFailsTheSavesNotTheChangesAndTheNextSaveHoldsThemAll)
{
        SmallDisk disk;
        if (!disk.mounted())
                GTEST_SKIP() << "no tmpfs can be mounted here: " << disk.error();
        ServiceOptions options;
        options.conf_dir = disk.path();
        ServiceProcess service(options);
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const std::string before = disk.conf_text();
        ASSERT_TRUE(disk.fill());

        // Accepted and applied; the failed saves are logged; the file stays as it was.
        EXPECT_EQ(call(service, "setCameraMountingHeight", R"({"value": 5.5})"), "data:{}");
        EXPECT_EQ(call(service, "setGuardTourTime", R"({"value": 7.5})"), "data:{}");
        EXPECT_EQ(call(service, "setObjectTypesToTrack", R"({"small": true, "vehicle": false})"), "data:{}");
        EXPECT_EQ(call(service, "getCameraMountingHeight", nullptr),
                  R"(data:{"value":5.5,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(service.matching("WARNING: Failed to save camera mounting height").size(), 1u);
        EXPECT_EQ(service.matching("WARNING: Failed to save guard tour time").size(), 1u);
        EXPECT_EQ(service.matching("WARNING: Failed to save tracking status for small objects").size(), 1u);
        EXPECT_FALSE(service.matching("No space left on device").empty());
        EXPECT_EQ(disk.conf_text(), before);

        // Space again: the next save carries every change made while the disk was full.
        disk.free_space();
        EXPECT_EQ(call(service, "setCameraZoomDegree", R"({"value": 75})"), "data:{}");
        EXPECT_EQ(service.stop(), 0);
        g_autoptr(GKeyFile) keys = g_key_file_new();
        ASSERT_TRUE(g_key_file_load_from_file(keys, disk.path("/trelvo.conf").c_str(), G_KEY_FILE_NONE, nullptr));
        EXPECT_EQ(g_key_file_get_double(keys, "camera", "mounting_height", nullptr), 5.5);
        EXPECT_EQ(g_key_file_get_double(keys, "camera", "zoom_degree", nullptr), 75.0);
        EXPECT_EQ(g_key_file_get_double(keys, "tracking", "guard_tour_time", nullptr), 7.5);
        EXPECT_TRUE(g_key_file_get_boolean(keys, "tracking", "small_object_track", nullptr));
        EXPECT_FALSE(g_key_file_get_boolean(keys, "tracking", "vehicle_object_track", nullptr));
        g_autoptr(GDir) dir = g_dir_open(disk.path().c_str(), 0, nullptr);
        Strings left;
        for (const gchar *entry; (entry = g_dir_read_name(dir));)
                left.push_back(entry);
        EXPECT_EQ(left, Strings{"trelvo.conf"}) << "no temporary file left behind";
}

} // namespace
