// sim-view: the simulated unit's live view. Gathers what the radar shows, where the
// camera looks, what the service published, and serves it as a page, a status document
// and a stream of updates on a Unix socket.
#include "scenario.h"
#include "view_camera.h"
#include "view_events.h"
#include "view_model.h"
#include "view_scene.h"
#include "view_server.h"
#include "zone_scenario.h"

#include <glib-unix.h>
#include <jansson.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace {

struct Options {
        gchar *socket = nullptr;
        gchar *scenario = nullptr;
        gchar *scene_socket = nullptr;
        gchar *camera_control = nullptr;
        gchar *www = nullptr;
        gchar *follow = nullptr;
        double rate_hz = 20.0;
        double pan_offset = 0.0;

        ~Options()
        {
                for (gchar *text : {socket, scenario, scene_socket, camera_control, www, follow})
                        g_free(text);
        }
};

const char summary[] =
        "Serves the simulated unit's live view on a Unix socket, under /sim/:\n"
        "  /sim/          the page (files of the www directory)\n"
        "  /sim/status    one JSON document: the radar's objects, the exclusion areas, the\n"
        "                 camera's position and field angle, the service's state and events,\n"
        "                 the moves per second and the in-view share\n"
        "  /sim/updates   the same document as server-sent events, RATE times a second\n"
        "\n"
        "It reads the scene provider socket as a subscriber, polls the simulated camera's\n"
        "control socket, and listens to the simulated event producer on the bus named by\n"
        "DBUS_SYSTEM_BUS_ADDRESS. The in-view share counts the objects of the followed\n"
        "classes outside the exclusion areas from one second after each first appeared: the\n"
        "share of that time in which at least one of them was inside the camera's\n"
        "horizontal field of view. The followed classes are the service's defaults, or the\n"
        "scenario's \"followed_classes\" (for a scenario that switches others on), or --follow.\n"
        "\n"
        "Prints \"sim-view: ready on PATH\" once it serves; SIGINT or SIGTERM stop it.";

bool view_parse(int *argc, char ***argv, Options *o)
{
        const GOptionEntry entries[] = {
                {"socket", 0, 0, G_OPTION_ARG_FILENAME, &o->socket, "Unix socket to serve on", "PATH"},
                {"scenario", 0, 0, G_OPTION_ARG_FILENAME, &o->scenario, "Scenario file (its zones and max_range)", "FILE"},
                {"scene-socket", 0, 0, G_OPTION_ARG_FILENAME, &o->scene_socket, "The radar's scene provider socket", "PATH"},
                {"camera-control", 0, 0, G_OPTION_ARG_FILENAME, &o->camera_control,
                 "The simulated camera's control socket", "PATH"},
                {"www", 0, 0, G_OPTION_ARG_FILENAME, &o->www, "Directory of the page's files", "DIR"},
                {"rate", 0, 0, G_OPTION_ARG_DOUBLE, &o->rate_hz, "Updates per second (20)", "HZ"},
                {"follow", 0, 0, G_OPTION_ARG_STRING, &o->follow, "Classes the service follows (Human,Vehicle)", "NAMES"},
                {"pan-offset", 0, 0, G_OPTION_ARG_DOUBLE, &o->pan_offset, "The service's pan offset, degrees (0)", "DEG"},
                {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
        };
        g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
        g_option_context_set_summary(context, summary);
        g_option_context_add_main_entries(context, entries, nullptr);
        g_autoptr(GError) error = nullptr;
        if (!g_option_context_parse(context, argc, argv, &error)) {
                fprintf(stderr, "sim-view: %s\n", error->message);
                return false;
        }
        if (!o->socket || !o->scenario || !o->scene_socket || !o->camera_control) {
                fprintf(stderr, "sim-view: --socket, --scenario, --scene-socket and --camera-control are needed\n");
                return false;
        }
        if (!(o->rate_hz >= 1.0 && o->rate_hz <= 100.0)) {
                fprintf(stderr, "sim-view: --rate must be from 1 to 100\n");
                return false;
        }
        return true;
}

// The scenario's "followed_classes", when it switches other classes on in the service.
void view_load_followed(const char *text, ViewModel *model)
{
        json_t *root = json_loads(text, 0, nullptr);
        json_t *names = json_object_get(root, "followed_classes");
        if (json_is_array(names)) {
                model->followed_classes.clear();
                size_t i;
                json_t *name;
                json_array_foreach(names, i, name)
                {
                        if (json_is_string(name))
                                model->followed_classes.insert(json_string_value(name));
                }
        }
        json_decref(root);
}

bool view_load_scenario(const char *path, ViewModel *model)
{
        g_autoptr(GError) error = nullptr;
        Scenario scenario;
        g_autofree gchar *text = nullptr;
        std::string zone_error;
        if (!scenario_load(path, &scenario, &error) || !g_file_get_contents(path, &text, nullptr, &error) ||
            !zone_scenario_parse(text, model->zones, &zone_error)) {
                fprintf(stderr, "sim-view: %s: %s\n", path, error ? error->message : zone_error.c_str());
                return false;
        }
        model->max_range = scenario.max_range;
        view_load_followed(text, model);
        return true;
}

gboolean view_quit(gpointer loop)
{
        g_main_loop_quit(static_cast<GMainLoop *>(loop));
        return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv)
{
        Options options;
        if (!view_parse(&argc, &argv, &options))
                return 2;
        ViewModel model;
        if (!view_load_scenario(options.scenario, &model))
                return 1;
        if (options.follow) {
                model.followed_classes.clear();
                g_auto(GStrv) names = g_strsplit(options.follow, ",", -1);
                for (gchar **name = names; *name; name++)
                        model.followed_classes.insert(*name);
        }
        model.pan_offset = options.pan_offset;
        model.start_us = g_get_monotonic_time();

        g_autoptr(GError) error = nullptr;
        if (!view_server_start(&model, options.socket, options.www ? options.www : SIM_VIEW_WWW, options.rate_hz,
                               &error)) {
                fprintf(stderr, "sim-view: %s\n", error->message);
                view_server_stop();
                return 1;
        }
        view_scene_start(&model, options.scene_socket);
        view_camera_start(&model, options.camera_control);
        view_events_start(&model);

        GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
        g_unix_signal_add(SIGINT, view_quit, loop);
        g_unix_signal_add(SIGTERM, view_quit, loop);
        printf("sim-view: ready on %s\n", options.socket);
        fflush(stdout);
        g_main_loop_run(loop);
        g_main_loop_unref(loop);

        view_events_stop();
        view_camera_stop();
        view_scene_stop();
        view_server_stop();
        return 0;
}
