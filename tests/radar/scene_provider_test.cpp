// The subscriber library against the real simulated radar process.
#include "radar_scene_subscriber.h"
#include "scene.pb.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <sys/wait.h>

namespace {

// One standing object and one that walks away from the radar.
const char scenario_json[] = R"({
  "rate_hz": 100,
  "objects": [
    {"id": 7, "class": 4, "speed": 0, "waypoints": [[30.0, 40.0]]},
    {"id": 9, "class": 3, "speed": 2.0, "loop": true, "waypoints": [[0.0, 10.0], [0.0, 20.0]]}
  ]
})";

// Scenes delivered to one collector.
struct Collected {
        std::mutex mutex;
        std::condition_variable arrived;
        std::vector<Scene> scenes;
};

Collected collected;

void collect(uint8_t *frame)
{
        const uint32_t length = (uint32_t{frame[0]} << 24) | (uint32_t{frame[1]} << 16) | (uint32_t{frame[2]} << 8) | frame[3];
        Scene scene;
        EXPECT_TRUE(scene.ParseFromArray(frame + 4, static_cast<int>(length) - 4));
        free(frame);
        std::lock_guard lock(collected.mutex);
        collected.scenes.push_back(std::move(scene));
        collected.arrived.notify_all();
}

// Waits, bounded, until n scenes have arrived.
std::vector<Scene> wait_for_scenes(size_t n)
{
        std::unique_lock lock(collected.mutex);
        collected.arrived.wait_for(lock, std::chrono::seconds(15), [&] { return collected.scenes.size() >= n; });
        return collected.scenes;
}

// The simulated radar as a child process. Spawned without GSubprocess, whose GLib worker
// thread ThreadSanitizer cannot follow.
struct SimRadarProcess {
        SimRadarProcess(const std::string &socket, const std::string &scenario)
        {
                const char *argv[] = {SIM_RADAR, "--socket", socket.c_str(), scenario.c_str(), nullptr};
                int out = -1;
                if (!g_spawn_async_with_pipes(nullptr, const_cast<char **>(argv), nullptr, G_SPAWN_DO_NOT_REAP_CHILD,
                                              nullptr, nullptr, &pid_, nullptr, &out, nullptr, nullptr)) {
                        pid_ = 0;
                        return;
                }
                output_ = fdopen(out, "r");
                char line[256] = "";
                serving_ = fgets(line, sizeof(line), output_) &&
                           g_str_has_prefix(line, "sim-radar: serving 2 objects at 100 Hz");
        }
        ~SimRadarProcess()
        {
                if (pid_ > 0)
                        kill(pid_, SIGTERM), waitpid(pid_, nullptr, 0);
                if (output_)
                        fclose(output_);
        }
        GPid pid_ = 0;
        FILE *output_ = nullptr;
        bool serving_ = false;
};

TEST(SceneProvider, ScenesArriveInOrderWithPositionsAsTheServiceReadsThem)
{
        g_autofree gchar *dir = g_dir_make_tmp("provider-XXXXXX", nullptr);
        const std::string socket_path = std::string(dir) + "/scene-provider.sock";
        const std::string scenario_path = std::string(dir) + "/scenario.json";
        ASSERT_TRUE(g_file_set_contents(scenario_path.c_str(), scenario_json, -1, nullptr));
        g_setenv("RADAR_SCENE_PROVIDER_SOCKET", socket_path.c_str(), TRUE);
        auto provider = std::make_unique<SimRadarProcess>(socket_path, scenario_path);
        ASSERT_TRUE(provider->serving_);
        RadarSceneSubscriber *subscriber = radar_scene_subscriber_create(0, 3, 0);
        radar_scene_subscriber_set_on_message_arrived_callback(subscriber, collect);
        ASSERT_EQ(radar_scene_subscriber_subscribe(subscriber), 0);
        char **names = nullptr;
        ASSERT_EQ(radar_scene_subscriber_get_object_classifications(subscriber, &names), 6);
        EXPECT_STREQ(names[3], "Human");

        const std::vector<Scene> scenes = wait_for_scenes(20);
        ASSERT_GE(scenes.size(), 20u);
        for (size_t i = 1; i < scenes.size(); i++)
                EXPECT_EQ(scenes[i].time(), scenes[i - 1].time() + 10000) << i; // none lost, none reordered
        // The standing object: range and azimuth, and the normalised point (max_range 100).
        const Object &o = scenes[0].objects(0);
        EXPECT_TRUE(o.id() == 7u && o.labels().labels(0).id() == 4u) << o.DebugString();
        EXPECT_FLOAT_EQ(o.position().x(), 50.0f);
        EXPECT_NEAR(o.position().y(), 36.869898f, 1e-4f);
        EXPECT_FLOAT_EQ(o.bounding_box().left(), 0.3f);
        EXPECT_FLOAT_EQ(o.bounding_box().top(), 0.4f);

        radar_scene_subscriber_delete(subscriber);
        provider.reset();
        g_unlink(scenario_path.c_str());
        g_rmdir(dir);
}

} // namespace
