#include "camera_control.h"

#include "camera_api.h"
#include "camera_params.h"
#include "camera_rtsp.h"
#include "soup_unix.h"

#include <libsoup/soup.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

namespace {

constexpr size_t max_token_length = 63;

struct CameraControl {
        SimCamera *camera = nullptr;
        SoupServer *server = nullptr;
        std::string socket_path;
};

CameraControl control;

using Query = GHashTable;

const char *simcam_control_arg(Query *query, const char *key)
{
        return query ? static_cast<const char *>(g_hash_table_lookup(query, key)) : nullptr;
}

void simcam_control_reply(SoupServerMessage *msg, unsigned status, json_t *document)
{
        char *text = json_dumps(document, JSON_COMPACT);
        json_decref(document);
        soup_server_message_set_status(msg, status, nullptr);
        soup_server_message_set_response(msg, "application/json", SOUP_MEMORY_TAKE, text, strlen(text));
}

void simcam_control_error(SoupServerMessage *msg, unsigned status, const std::string &message)
{
        simcam_control_reply(msg, status, json_pack("{s:s}", "error", message.c_str()));
}

bool simcam_control_fail(std::string *error, const char *message)
{
        *error = message;
        return false;
}

// A name, version or credential: printable, no white space, 1 to 63 characters.
bool simcam_control_token(const char *text)
{
        const size_t length = strlen(text);
        if (length == 0 || length > max_token_length)
                return false;
        for (const char *c = text; *c; c++)
                if (!g_ascii_isgraph(*c))
                        return false;
        return true;
}

bool simcam_control_int(const char *text, int low, int high, int *value)
{
        char *end = nullptr;
        errno = 0;
        const long number = strtol(text, &end, 10);
        if (end == text || *end != '\0' || errno != 0 || number < low || number > high)
                return false;
        *value = static_cast<int>(number);
        return true;
}

// Every key must be one of the known ones.
bool simcam_control_known_keys(Query *query, const char *const *known, std::string *unknown)
{
        if (!query)
                return true;
        GHashTableIter iter;
        gpointer key;
        g_hash_table_iter_init(&iter, query);
        while (g_hash_table_iter_next(&iter, &key, nullptr)) {
                bool found = false;
                for (const char *const *k = known; *k && !found; k++)
                        found = g_str_equal(*k, key);
                if (!found) {
                        *unknown = static_cast<const char *>(key);
                        return false;
                }
        }
        return true;
}

json_t *simcam_control_faults(const SimCamera &camera)
{
        json_t *faults = json_array();
        for (size_t i = 0; i < static_cast<size_t>(CameraFault::count); i++)
                if (camera.faults.test(i))
                        json_array_append_new(faults, json_string(sim_camera_fault_name(static_cast<CameraFault>(i))));
        return faults;
}

// ---- GET /requests

void simcam_control_requests(SoupServerMessage *msg, Query *query)
{
        const char *since_text = simcam_control_arg(query, "since");
        int since = 0;
        if (since_text && !simcam_control_int(since_text, 0, INT_MAX, &since)) {
                simcam_control_error(msg, SOUP_STATUS_BAD_REQUEST, "since must be a sequence number");
                return;
        }
        json_t *list = json_array();
        for (const RequestRecord &r : control.camera->requests) {
                if (r.seq < static_cast<uint64_t>(since))
                        continue;
                json_array_append_new(list, json_pack("{s:I,s:I,s:s,s:s,s:i,s:o}", "seq", static_cast<json_int_t>(r.seq),
                                                      "t_us", static_cast<json_int_t>(r.t_us), "scheme", r.scheme.c_str(),
                                                      "path", r.path.c_str(), "status", static_cast<int>(r.status), "user",
                                                      r.user.empty() ? json_null() : json_string(r.user.c_str())));
        }
        simcam_control_reply(msg, SOUP_STATUS_OK,
                             json_pack("{s:I,s:o}", "next", static_cast<json_int_t>(control.camera->next_request_seq),
                                       "requests", list));
}

// ---- POST /fault

bool simcam_control_fault(SimCamera *camera, Query *query, std::string *error)
{
        static const char *const known[] = {"name", "on", nullptr};
        CameraFault fault;
        const char *on = simcam_control_arg(query, "on");
        if (!simcam_control_known_keys(query, known, error)) {
                *error = "unknown parameter " + *error;
                return false;
        }
        if (!sim_camera_fault_from_name(simcam_control_arg(query, "name"), &fault)) {
                *error = "unknown fault";
                return false;
        }
        if (g_strcmp0(on, "1") != 0 && g_strcmp0(on, "0") != 0) {
                *error = "on must be 1 or 0";
                return false;
        }
        camera->faults.set(static_cast<size_t>(fault), g_str_equal(on, "1"));
        return true;
}

// ---- POST /set

// The settings as they would be after the request; applied only when all of them are good.
bool simcam_control_settings(Query *query, SimCamera *next, std::string *error)
{
        static const char *const known[] = {"firmware", "metadata", "product_number", "min_field_angle",
                                            "max_field_angle", "user", "password", "auth", nullptr};
        if (!simcam_control_known_keys(query, known, error)) {
                *error = "unknown parameter " + *error;
                return false;
        }
        CameraIdentity &id = next->identity;
        const char *value;
        if ((value = simcam_control_arg(query, "firmware")) && !simcam_control_token(value))
                return simcam_control_fail(error, "bad firmware");
        if (value)
                id.firmware = value;
        if ((value = simcam_control_arg(query, "metadata"))) {
                if (!g_str_equal(value, "yes") && !g_str_equal(value, "no"))
                        return simcam_control_fail(error, "metadata must be yes or no");
                id.metadata = g_str_equal(value, "yes");
        }
        if ((value = simcam_control_arg(query, "product_number")) && !simcam_control_token(value))
                return simcam_control_fail(error, "bad product_number");
        if (value)
                id.product_number = value;
        if ((value = simcam_control_arg(query, "min_field_angle")) &&
            !simcam_control_int(value, 1, 3600, &id.min_field_angle))
                return simcam_control_fail(error, "bad min_field_angle");
        if ((value = simcam_control_arg(query, "max_field_angle")) &&
            !simcam_control_int(value, 1, 3600, &id.max_field_angle))
                return simcam_control_fail(error, "bad max_field_angle");
        if (id.min_field_angle > id.max_field_angle)
                return simcam_control_fail(error, "min_field_angle above max_field_angle");
        if ((value = simcam_control_arg(query, "user")) && (!simcam_control_token(value) || strchr(value, ':')))
                return simcam_control_fail(error, "bad user");
        if (value)
                next->user = value;
        if ((value = simcam_control_arg(query, "password")) && !simcam_control_token(value))
                return simcam_control_fail(error, "bad password");
        if (value)
                next->password = value;
        if ((value = simcam_control_arg(query, "auth")) && !sim_camera_auth_from_name(value, &next->auth))
                return simcam_control_fail(error, "auth must be basic, digest or both");
        return true;
}


// ---- POST /position, POST /home

struct Placement {
        double pan, tilt, zoom;
};

bool simcam_control_coordinate(Query *query, const char *key, double low, double high, double *value, std::string *error)
{
        const char *text = simcam_control_arg(query, key);
        if (!text)
                return true;
        double number;
        if (!simcam_params_number(text, &number) || number < low || number > high) {
                *error = std::string("bad ") + key;
                return false;
        }
        *value = number;
        return true;
}

bool simcam_control_placement(Query *query, Placement *placement, std::string *error)
{
        static const char *const known[] = {"pan", "tilt", "zoom", nullptr};
        if (!simcam_control_known_keys(query, known, error)) {
                *error = "unknown parameter " + *error;
                return false;
        }
        return simcam_control_coordinate(query, "pan", ptz_pan_min, ptz_pan_max, &placement->pan, error) &&
               simcam_control_coordinate(query, "tilt", ptz_tilt_min, ptz_tilt_max, &placement->tilt, error) &&
               simcam_control_coordinate(query, "zoom", ptz_zoom_min, ptz_zoom_max, &placement->zoom, error);
}

bool simcam_control_home(SimCamera *camera, Query *query, std::string *error)
{
        Placement placement{camera->home_pan, camera->home_tilt, camera->home_zoom};
        if (!simcam_control_placement(query, &placement, error))
                return false;
        camera->home_pan = ptz_dynamics_wrap_pan(placement.pan);
        camera->home_tilt = placement.tilt;
        camera->home_zoom = placement.zoom;
        return true;
}

// ---- dispatch

using Change = bool (*)(SimCamera *, Query *, std::string *);

struct Route {
        const char *path;
        Change change; // POST: changes the camera, then answers with the status
};

constexpr Route changes[] = {
        {"/fault", simcam_control_fault},
        {"/set", simcam_control_set},
        {"/position", simcam_control_position},
        {"/home", simcam_control_home},
};

void simcam_control_post(SoupServerMessage *msg, const char *path, Query *query)
{
        for (const Route &route : changes) {
                if (!g_str_equal(path, route.path))
                        continue;
                std::string error;
                if (!route.change(control.camera, query, &error)) {
                        simcam_control_error(msg, SOUP_STATUS_BAD_REQUEST, error);
                        return;
                }
                simcam_api_refresh();
                simcam_rtsp_refresh();
                simcam_control_reply(msg, SOUP_STATUS_OK, simcam_control_status(*control.camera));
                return;
        }
        simcam_control_error(msg, SOUP_STATUS_NOT_FOUND, std::string("no ") + path);
}

void simcam_control_handle(SoupServer *, SoupServerMessage *msg, const char *path, GHashTable *query, gpointer)
{
        const char *method = soup_server_message_get_method(msg);
        const bool get = g_str_equal(method, "GET");
        if (get && g_str_equal(path, "/status"))
                simcam_control_reply(msg, SOUP_STATUS_OK, simcam_control_status(*control.camera));
        else if (get && g_str_equal(path, "/requests"))
                simcam_control_requests(msg, query);
        else if (g_str_equal(method, "POST"))
                simcam_control_post(msg, path, query);
        else
                simcam_control_error(msg, get ? SOUP_STATUS_NOT_FOUND : SOUP_STATUS_METHOD_NOT_ALLOWED,
                                     std::string("no ") + method + " " + path);
}


} // namespace

bool simcam_control_set(SimCamera *camera, GHashTable *settings, std::string *error)
{
        SimCamera next;
        next.identity = camera->identity;
        next.user = camera->user;
        next.password = camera->password;
        next.auth = camera->auth;
        if (!simcam_control_settings(settings, &next, error))
                return false;
        camera->identity = next.identity;
        camera->user = next.user;
        camera->password = next.password;
        camera->auth = next.auth;
        return true;
}

bool simcam_control_position(SimCamera *camera, GHashTable *position, std::string *error)
{
        PtzState &ptz = camera->ptz;
        Placement placement{ptz.pan.position, ptz.tilt.position, ptz.zoom.position};
        if (!simcam_control_placement(position, &placement, error))
                return false;
        ptz_dynamics_teleport(&ptz, placement.pan, placement.tilt, placement.zoom);
        return true;
}

json_t *simcam_control_status(const SimCamera &camera)
{
        const PtzState &ptz = camera.ptz;
        const CameraIdentity &id = camera.identity;
        return json_pack("{s:f,s:f,s:f,s:i,s:b,s:f,s:f,s:f,s:{s:f,s:f,s:f},s:{s:I,s:I},s:I,s:o,s:s,s:b,s:b,s:s,"
                         "s:{s:i,s:i},s:{s:f,s:f,s:f},s:s,s:s,s:{s:I,s:I}}",
                         "pan", ptz.pan.position, "tilt", ptz.tilt.position, "zoom", ptz.zoom.position, "reported_zoom",
                         sim_camera_reported_zoom(camera), "moving", ptz_dynamics_moving(ptz), "pan_speed",
                         ptz.pan.speed_command, "tilt_speed", ptz.tilt.speed_command, "zoom_speed", ptz.zoom.speed_command,
                         "velocity", "pan", ptz.pan.velocity, "tilt", ptz.tilt.velocity, "zoom", ptz.zoom.velocity,
                         "connections", "http", static_cast<json_int_t>(simcam_api_http_connections()), "https",
                         static_cast<json_int_t>(simcam_api_https_connections()), "requests",
                         static_cast<json_int_t>(camera.next_request_seq), "faults", simcam_control_faults(camera),
                         "firmware", id.firmware.c_str(), "metadata", id.metadata, "stream_offered",
                         sim_camera_offers_stream(id), "product_number", id.product_number.c_str(), "field_angle", "min",
                         id.min_field_angle, "max", id.max_field_angle, "home", "pan", camera.home_pan, "tilt",
                         camera.home_tilt, "zoom", camera.home_zoom, "user", camera.user.c_str(), "auth",
                         sim_camera_auth_name(camera.auth), "rtsp", "clients",
                         static_cast<json_int_t>(simcam_rtsp_clients()), "packets",
                         static_cast<json_int_t>(simcam_rtsp_packets()));
}

bool simcam_control_setup(SimCamera *camera, const char *socket_path, GError **error)
{
        control.camera = camera;
        control.socket_path = socket_path;
        control.server = soup_server_new("server-header", "sim-camera-control ", nullptr);
        soup_server_add_handler(control.server, nullptr, simcam_control_handle, nullptr, nullptr);
        return sim_soup_listen_unix(control.server, socket_path, error);
}

void simcam_control_teardown(void)
{
        if (!control.server)
                return;
        soup_server_disconnect(control.server);
        g_clear_object(&control.server);
        unlink(control.socket_path.c_str());
}
