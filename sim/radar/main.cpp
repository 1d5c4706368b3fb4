// sim-radar: the simulated radar's scene provider. Plays a scenario file and publishes its
// scenes on the scene provider socket to every connected subscriber.
#include "scenario.h"
#include "scenario_scene.h"
#include "scene_publisher.h"

#include <glib-unix.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <set>

namespace {

constexpr char default_socket[] = "/run/radar/scene-provider.sock";

struct SimRadar {
        Scenario scenario;
        ScenePublisher *publisher = nullptr;
        uint64_t frame = 0;
        uint64_t frame_limit = 0; // 0: run until a signal
        std::set<uint32_t> shown; // objects in the last scene
        GMainLoop *loop = nullptr;
};

// Tells the measurements when each object entered, on the monotonic clock that the
// simulated camera's request log uses too.
void sim_radar_note_arrivals(SimRadar *sim, const Scene &scene, int64_t published_us)
{
        std::set<uint32_t> now;
        for (const Object &object : scene.objects()) {
                now.insert(object.id());
                if (!sim->shown.count(object.id()))
                        printf("sim-radar: object %u appears at %" G_GINT64_FORMAT "\n", object.id(), published_us);
        }
        fflush(stdout);
        sim->shown = std::move(now);
}

gboolean sim_radar_tick(gpointer data)
{
        auto *sim = static_cast<SimRadar *>(data);
        const Scene scene = scenario_scene(sim->scenario, sim->frame);
        sim->publisher->publish_scene(scene);
        sim_radar_note_arrivals(sim, scene, g_get_monotonic_time());
        sim->frame++;
        if (sim->frame_limit && sim->frame >= sim->frame_limit) {
                g_main_loop_quit(sim->loop);
                return G_SOURCE_REMOVE;
        }
        return G_SOURCE_CONTINUE;
}

gboolean sim_radar_quit(gpointer data)
{
        g_main_loop_quit(static_cast<GMainLoop *>(data));
        return G_SOURCE_CONTINUE;
}

const char summary[] =
        "Publishes the scenes of SCENARIO (JSON) on the radar scene provider socket.\n"
        "\n"
        "Each client first receives \"RSP1\" and the classification names, then one scene\n"
        "frame per packet. Scenario keys (all optional):\n"
        "  rate_hz     scenes per second (10)\n"
        "  max_range   metres that map to 1 in the normalised plane (100)\n"
        "  classes     classification names in class-index order\n"
        "              (Raw, RawAssociated, Unknown, Human, Vehicle, SmallObject)\n"
        "  objects     [{\"id\": 7, \"class\": 3, \"speed\": 1.4, \"loop\": true,\n"
        "                \"start_s\": 0, \"waypoints\": [[-10, 20], [10, 25]]}]\n"
        "Waypoints are metres on the ground, radar at the origin facing +y, x to the right.\n"
        "An object without \"loop\" leaves the scene after its last waypoint; one with \"start_s\"\n"
        "enters that many seconds after the start. Each object's entry is printed as\n"
        "\"sim-radar: object ID appears at T\" (T: monotonic clock, microseconds).\n"
        "Prints \"sim-radar: serving ...\" once the socket accepts clients; SIGINT or SIGTERM stop it.";

} // namespace

int main(int argc, char **argv)
{
        g_autofree gchar *socket_path = nullptr;
        double rate = 0.0;
        gint64 frames = 0;
        const GOptionEntry entries[] = {
                {"socket", 's', 0, G_OPTION_ARG_FILENAME, &socket_path,
                 "Socket to serve (default /run/radar/scene-provider.sock)", "PATH"},
                {"rate", 'r', 0, G_OPTION_ARG_DOUBLE, &rate, "Scenes per second, overriding the scenario", "HZ"},
                {"frames", 'n', 0, G_OPTION_ARG_INT64, &frames, "Stop after this many scenes", "N"},
                {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
        };
        g_autoptr(GOptionContext) options = g_option_context_new("SCENARIO");
        g_option_context_set_summary(options, summary);
        g_option_context_add_main_entries(options, entries, nullptr);
        g_autoptr(GError) error = nullptr;
        if (!g_option_context_parse(options, &argc, &argv, &error)) {
                fprintf(stderr, "sim-radar: %s\n", error->message);
                return 2;
        }
        if (argc != 2 || rate < 0.0 || frames < 0) {
                fprintf(stderr, "sim-radar: give one scenario file (see --help)\n");
                return 2;
        }

        SimRadar sim;
        if (!scenario_load(argv[1], &sim.scenario, &error)) {
                fprintf(stderr, "sim-radar: %s: %s\n", argv[1], error->message);
                return 1;
        }
        if (rate > 0.0)
                sim.scenario.rate_hz = rate;
        sim.frame_limit = static_cast<uint64_t>(frames);

        ScenePublisher publisher(sim.scenario.classes);
        const char *path = socket_path ? socket_path : default_socket;
        if (!publisher.listen(path, nullptr, &error)) {
                fprintf(stderr, "sim-radar: %s\n", error->message);
                return 1;
        }
        sim.publisher = &publisher;
        sim.loop = g_main_loop_new(nullptr, FALSE);
        g_unix_signal_add(SIGINT, sim_radar_quit, sim.loop);
        g_unix_signal_add(SIGTERM, sim_radar_quit, sim.loop);
        const auto interval_ms = static_cast<guint>(std::max(1.0, 1000.0 / sim.scenario.rate_hz));
        g_timeout_add(interval_ms, sim_radar_tick, &sim);

        printf("sim-radar: serving %zu objects at %g Hz on %s\n", sim.scenario.objects.size(),
               sim.scenario.rate_hz, path);
        fflush(stdout);
        g_main_loop_run(sim.loop);
        g_main_loop_unref(sim.loop);
        return 0;
}
