// sim-camera: the simulated PTZ network camera. Serves the camera's HTTP API on its HTTP
// and HTTPS ports, moves with simple first-order dynamics, plays switchable faults, and
// offers a control interface for tests and the demo.
#include "camera_api.h"
#include "camera_control.h"
#include "camera_rtsp.h"
#include "sim_camera.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace {

constexpr guint tick_ms = 10;

struct Options {
        gchar *address = nullptr;
        gchar *interface = nullptr;
        gint http_port = 80;
        gint https_port = 443;
        gint rtsp_port = 554;
        gchar *user = nullptr;
        gchar *password = nullptr;
        gchar *auth = nullptr;
        gchar *firmware = nullptr;
        gchar *metadata = nullptr;
        gchar *min_field_angle = nullptr;
        gchar *max_field_angle = nullptr;
        gchar *product_number = nullptr;
        gchar *control = nullptr;
        gchar **faults = nullptr;
        gchar *pan = nullptr;
        gchar *tilt = nullptr;
        gchar *zoom = nullptr;

        ~Options()
        {
                for (gchar *text : {address, interface, user, password, auth, firmware, metadata, min_field_angle,
                                    max_field_angle, product_number, control, pan, tilt, zoom})
                        g_free(text);
                g_strfreev(faults);
        }
};

struct SimCameraMain {
        SimCamera camera;
        GMainLoop *loop = nullptr;
        gint64 last_tick_us = 0;
};

gboolean sim_camera_tick(gpointer data)
{
        auto *sim = static_cast<SimCameraMain *>(data);
        const gint64 now = g_get_monotonic_time();
        ptz_dynamics_step(&sim->camera.ptz, static_cast<double>(now - sim->last_tick_us) / 1e6);
        sim->last_tick_us = now;
        return G_SOURCE_CONTINUE;
}

gboolean sim_camera_quit(gpointer data)
{
        g_main_loop_quit(static_cast<GMainLoop *>(data));
        return G_SOURCE_CONTINUE;
}

const char summary[] =
        "Plays a PTZ network camera for tests and the demo.\n"
        "\n"
        "HTTP API (HTTP and HTTPS ports, Basic and/or Digest authentication):\n"
        "  zelk-cgi/com/ptz.cgi?query=position\n"
        "  zelk-cgi/com/ptz.cgi?continuouspantiltmove=P,T&continuouszoommove=Z   speeds -100..100\n"
        "  zelk-cgi/com/ptz.cgi?pan=P&tilt=T&zoom=Z                              absolute move\n"
        "  zelk-cgi/com/ptz.cgi?move=home | move=stop\n"
        "  zelk-cgi/param.cgi?action=list&group=Properties | Ptz.Limit.L1 | Brand\n"
        "Moves answer 200 with an empty body. Unknown paths get 404; unknown groups 200 with\n"
        "\"# Error: ...\"; bad commands 400 and change nothing.\n"
        "\n"
        "Mechanics: speed 100 is pan 120 deg/s, tilt 90 deg/s, zoom 2500 units/s (1..9999 in\n"
        "4 s); speeds follow the command with a 0.1 s first-order lag; absolute moves go at\n"
        "full speed and brake in proportion to the distance left (0.1 s time constant), with\n"
        "no overshoot. Pan wraps in [-180, 180), tilt stays in [-90, 20], zoom in [1, 9999].\n"
        "\n"
        "Faults: https_only redirect_https redirect_loop wrong_credentials no_answer\n"
        "        zoom_half_scale stream_drop huge_reply\n"
        "\n"
        "Control interface (--control PATH, HTTP on a Unix socket, JSON answers):\n"
        "  GET /status, GET /requests?since=N, POST /fault?name=NAME&on=1|0,\n"
        "  POST /set?firmware=..&metadata=yes|no&product_number=..&min_field_angle=..\n"
        "           &max_field_angle=..&user=..&password=..&auth=basic|digest|both,\n"
        "  POST /position?pan=..&tilt=..&zoom=.., POST /home?pan=..&tilt=..&zoom=..\n"
        "\n"
        "RTSP metadata stream: rtsp://ADDR:554/zelk-media/media.amp (any query), RTP over the\n"
        "RTSP connection, one ONVIF PTZ status XML per packet at 10 Hz, same credentials.\n"
        "Refused with 404 unless metadata is yes and the firmware is 5.55.1.3 or later (or\n"
        "cvp/cfp); stream_drop closes the connection of every streaming client.\n"
        "\n"
        "Prints \"sim-camera: ready\" once every port listens; SIGINT or SIGTERM stop it.";

bool sim_camera_parse(int *argc, char ***argv, Options *o)
{
        const GOptionEntry entries[] = {
                {"address", 0, 0, G_OPTION_ARG_STRING, &o->address, "Address to listen on (127.0.0.1)", "ADDR"},
                {"interface", 0, 0, G_OPTION_ARG_STRING, &o->interface, "Scope of an IPv6 link-local address", "IF"},
                {"http-port", 0, 0, G_OPTION_ARG_INT, &o->http_port, "HTTP port (80)", "PORT"},
                {"https-port", 0, 0, G_OPTION_ARG_INT, &o->https_port, "HTTPS port (443)", "PORT"},
                {"rtsp-port", 0, 0, G_OPTION_ARG_INT, &o->rtsp_port, "RTSP port (554)", "PORT"},
                {"user", 0, 0, G_OPTION_ARG_STRING, &o->user, "Accepted user (root)", "USER"},
                {"password", 0, 0, G_OPTION_ARG_STRING, &o->password, "Accepted password (pass)", "PASSWORD"},
                {"auth", 0, 0, G_OPTION_ARG_STRING, &o->auth, "Schemes offered: basic, digest or both (both)", "SCHEMES"},
                {"firmware", 0, 0, G_OPTION_ARG_STRING, &o->firmware, "Firmware version (9.80.1.0)", "VERSION"},
                {"metadata", 0, 0, G_OPTION_ARG_STRING, &o->metadata, "Metadata stream offered: yes or no (yes)", "YES|NO"},
                {"min-field-angle", 0, 0, G_OPTION_ARG_STRING, &o->min_field_angle, "Tenths of a degree (22)", "N"},
                {"max-field-angle", 0, 0, G_OPTION_ARG_STRING, &o->max_field_angle, "Tenths of a degree (629)", "N"},
                {"product-number", 0, 0, G_OPTION_ARG_STRING, &o->product_number, "Product number (ZPT-6100)", "TOKEN"},
                {"control", 0, 0, G_OPTION_ARG_FILENAME, &o->control, "Unix socket of the control interface", "PATH"},
                {"fault", 0, 0, G_OPTION_ARG_STRING_ARRAY, &o->faults, "Fault on from the start (repeatable)", "NAME"},
                {"pan", 0, 0, G_OPTION_ARG_STRING, &o->pan, "Initial pan, degrees (0)", "P"},
                {"tilt", 0, 0, G_OPTION_ARG_STRING, &o->tilt, "Initial tilt, degrees (0)", "T"},
                {"zoom", 0, 0, G_OPTION_ARG_STRING, &o->zoom, "Initial zoom position (1)", "Z"},
                {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
        };
        g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
        g_option_context_set_summary(context, summary);
        g_option_context_add_main_entries(context, entries, nullptr);
        g_autoptr(GError) error = nullptr;
        if (!g_option_context_parse(context, argc, argv, &error)) {
                fprintf(stderr, "sim-camera: %s\n", error->message);
                return false;
        }
        if (*argc != 1) {
                fprintf(stderr, "sim-camera: unexpected argument %s\n", (*argv)[1]);
                return false;
        }
        for (gint port : {o->http_port, o->https_port, o->rtsp_port}) {
                if (port < 0 || port > 65535) {
                        fprintf(stderr, "sim-camera: no port %d\n", port);
                        return false;
                }
        }
        return true;
}

// Adds key=value to table when the option was given.
void sim_camera_put(GHashTable *table, const char *key, const gchar *value)
{
        if (value)
                g_hash_table_insert(table, const_cast<char *>(key), const_cast<gchar *>(value));
}

// The settings the control interface can change, checked by the same rules.
bool sim_camera_configure(SimCamera *camera, const Options &o)
{
        g_autoptr(GHashTable) settings = g_hash_table_new(g_str_hash, g_str_equal);
        sim_camera_put(settings, "user", o.user);
        sim_camera_put(settings, "password", o.password);
        sim_camera_put(settings, "auth", o.auth);
        sim_camera_put(settings, "firmware", o.firmware);
        sim_camera_put(settings, "metadata", o.metadata);
        sim_camera_put(settings, "min_field_angle", o.min_field_angle);
        sim_camera_put(settings, "max_field_angle", o.max_field_angle);
        sim_camera_put(settings, "product_number", o.product_number);
        g_autoptr(GHashTable) position = g_hash_table_new(g_str_hash, g_str_equal);
        sim_camera_put(position, "pan", o.pan);
        sim_camera_put(position, "tilt", o.tilt);
        sim_camera_put(position, "zoom", o.zoom);
        std::string error;
        if (!simcam_control_set(camera, settings, &error) || !simcam_control_position(camera, position, &error)) {
                fprintf(stderr, "sim-camera: %s\n", error.c_str());
                return false;
        }
        for (gchar **name = o.faults; name && *name; name++) {
                CameraFault fault;
                if (!sim_camera_fault_from_name(*name, &fault)) {
                        fprintf(stderr, "sim-camera: no fault %s\n", *name);
                        return false;
                }
                camera->faults.set(static_cast<size_t>(fault));
        }
        return true;
}

CameraApiConfig sim_camera_api_config(const Options &o)
{
        CameraApiConfig config;
        if (o.address)
                config.address = o.address;
        if (o.interface)
                config.interface = o.interface;
        config.http_port = static_cast<uint16_t>(o.http_port);
        config.https_port = static_cast<uint16_t>(o.https_port);
        return config;
}

bool sim_camera_start(SimCameraMain *sim, const Options &o)
{
        g_autoptr(GError) error = nullptr;
        const CameraApiConfig config = sim_camera_api_config(o);
        if (!simcam_api_setup(&sim->camera, config, &error) ||
            !simcam_rtsp_setup(&sim->camera, config, static_cast<uint16_t>(o.rtsp_port), &error) ||
            (o.control && !simcam_control_setup(&sim->camera, o.control, &error))) {
                fprintf(stderr, "sim-camera: %s\n", error->message);
                return false;
        }
        return true;
}

bool sim_camera_pool_threads_left(void)
{
        g_autoptr(GDir) tasks = g_dir_open("/proc/self/task", 0, nullptr);
        const char *task;
        while (tasks && (task = g_dir_read_name(tasks))) {
                g_autofree gchar *path = g_strdup_printf("/proc/self/task/%s/comm", task);
                g_autofree gchar *name = nullptr;
                if (g_file_get_contents(path, &name, nullptr, nullptr) && g_str_has_prefix(name, "pool-"))
                        return true;
        }
        return false;
}

// TLS handshakes run on GLib's pool threads, which idle on for a while. Once told to keep
// none idle, they end within half a second; waiting for that lets the leak checker of
// sanitizer builds walk the remaining threads at exit, which it cannot do through the
// thread-local storage a pool thread took from the TLS module.
void sim_camera_stop_idle_threads(void)
{
        g_thread_pool_set_max_unused_threads(0);
        for (int i = 0; i < 200 && sim_camera_pool_threads_left(); i++)
                g_usleep(10000);
}

} // namespace

int main(int argc, char **argv)
{
        Options options;
        if (!sim_camera_parse(&argc, &argv, &options))
                return 2;
        SimCameraMain sim;
        if (!sim_camera_configure(&sim.camera, options))
                return 2;
        int status = 0;
        if (sim_camera_start(&sim, options)) {
                sim.loop = g_main_loop_new(nullptr, FALSE);
                g_unix_signal_add(SIGINT, sim_camera_quit, sim.loop);
                g_unix_signal_add(SIGTERM, sim_camera_quit, sim.loop);
                sim.last_tick_us = g_get_monotonic_time();
                g_timeout_add(tick_ms, sim_camera_tick, &sim);
                printf("sim-camera: ready\n");
                fflush(stdout);
                g_main_loop_run(sim.loop);
                g_main_loop_unref(sim.loop);
        } else {
                status = 1;
        }
        simcam_control_teardown();
        simcam_rtsp_teardown();
        simcam_api_teardown();
        sim_camera_stop_idle_threads();
        return status;
}
