#include "cgi.h"
#include "cgi_api.h"

#include "camera.h"
#include "log.h"
#include "persistent.h"
#include "radar_metadata.h"
#include "rcgi.h"
#include "settings.h"
#include "tracking.h"

#include <glib-unix.h>
#include <systemd/sd-daemon.h>

#include <cstring>

namespace {

enum CgiErrorCode : int {
        CGI_UNSUPPORTED_API_VERSION = 100,
        CGI_INTERNAL_ERROR = 101,
        CGI_PARAMETERS_MISSING = 102,
        CGI_UNKNOWN_PARAMETER = 103,
        CGI_JSON_INPUT_ERROR = 200,
        CGI_UNEXPECTED_ERROR = 201,
        CGI_GENERIC_ERROR = 202,
        CGI_INVALID_METHOD = 203,
        CGI_FAULTY_PARAMETER = 300,
        CGI_INVALID_STATE = 301,
};

struct CgiErrorText {
        int code;
        const char *message;
};

constexpr CgiErrorText error_texts[] = {
        {CGI_UNSUPPORTED_API_VERSION, "Unsupported API version"},
        {CGI_PARAMETERS_MISSING, "Mandatory parameter(s) missing"},
        {CGI_UNKNOWN_PARAMETER, "Unknown parameter supplied"},
        {CGI_JSON_INPUT_ERROR, "JSON input error"},
        {CGI_UNEXPECTED_ERROR, "Unexpected error"},
        {CGI_GENERIC_ERROR, "Generic error"},
        {CGI_INVALID_METHOD, "Invalid method"},
        {CGI_FAULTY_PARAMETER, "Faulty parameter"},
        {CGI_INVALID_STATE, "Invalid state"},
};

// API codes for the library's own failures, indexed by the library code plus 7.
constexpr int library_error_codes[] = {
        CGI_JSON_INPUT_ERROR,        // -7
        CGI_INTERNAL_ERROR,          // -6
        CGI_UNSUPPORTED_API_VERSION, // -5
        CGI_INVALID_METHOD,          // -4
        CGI_FAULTY_PARAMETER,        // -3
        CGI_PARAMETERS_MISSING,      // -2
        CGI_FAULTY_PARAMETER,        // -1
};

constexpr const char *cgi_path = "/zelk-cgi/trelvo.cgi";

struct Range {
        double min;
        double max;
};

constexpr Range mounting_height_range{1.0, 16.0};
constexpr Range pan_offset_range{-360.0, 360.0};
constexpr Range tilt_offset_range{-10.0, 10.0};
constexpr Range zoom_degree_range{0.0, 100.0};
constexpr Range guard_tour_time_range{1.0, 60.0};
constexpr int return_to_home_timeout_min = 1;
constexpr int return_to_home_timeout_max = 300;

// The object types the API names, in its order, with the class each stands for. The
// settings store's switches come in the same order (small, human, vehicle, unidentified).
struct ObjectType {
        const char *name;
        ObjectClass object_class;
};

constexpr ObjectType object_types[] = {
        {"small", OBJECT_CLASS_SMALL_OBJECT},
        {"human", OBJECT_CLASS_HUMAN},
        {"vehicle", OBJECT_CLASS_VEHICLE},
        {"unknown", OBJECT_CLASS_UNKNOWN},
};
constexpr size_t n_object_types = G_N_ELEMENTS(object_types);

// An ip text shorter than this is taken as it is (the empty text clears the camera).
constexpr size_t checked_ip_length = 7;

struct CgiState {
        RcgiHandle *handle;
        guint watch;
};

CgiState cgi; // file-level, so it starts zeroed: only non-zero starts are written

int cgi_answer(RcgiResponse *response, json_t *data)
{
        response->data = data;
        return 0;
}

int cgi_answer_empty(RcgiResponse *response)
{
        return cgi_answer(response, json_object());
}

// Reads "value" as a number within range into *value: 0, or the error to answer.
int cgi_read_number(const RcgiRequest *request, RcgiResponse *response, Range range, double *value)
{
        const json_t *member = json_object_get(request->params, "value");
        if (!json_is_number(member))
                return CGI_FAULTY_PARAMETER;
        *value = json_number_value(member);
        if (*value < range.min || *value > range.max)
                return rcgi_errorf(response, CGI_FAULTY_PARAMETER, "Invalid value '%.4f' for parameter '%s'", *value,
                                   "value");
        return 0;
}

// Reads "value" as a JSON boolean into *value: 0, or the error to answer.
int cgi_read_boolean(const RcgiRequest *request, gboolean *value)
{
        const json_t *member = json_object_get(request->params, "value");
        if (!json_is_boolean(member))
                return CGI_FAULTY_PARAMETER;
        *value = json_is_true(member);
        return 0;
}

json_t *cgi_ranged_value(double value, Range range)
{
        return json_pack("{s:f, s:f, s:f}", "value", value, "minValue", range.min, "maxValue", range.max);
}

json_t *cgi_boolean_value(gboolean value)
{
        return json_pack("{s:b}", "value", value);
}

// Four decimal numbers of 0 to 255 joined by single dots, without leading zeros.
bool cgi_is_dotted_quad(const char *text)
{
        int numbers = 0;
        int current = 0; // the number being read
        bool in_number = false;
        for (const char *p = text; *p; p++) {
                if (g_ascii_isdigit(*p)) {
                        const int digit = *p - '0';
                        if (!in_number) {
                                numbers++;
                                current = digit;
                                in_number = true;
                        } else if (current == 0 || current * 10 + digit > 255) {
                                return false;
                        } else {
                                current = current * 10 + digit;
                        }
                } else if (*p == '.' && in_number && numbers < 4) {
                        in_number = false;
                } else {
                        return false;
                }
        }
        return numbers == 4;
}

int cgi_get_camera_connection(const RcgiRequest *, RcgiResponse *response)
{
        gchar *ip = nullptr, *user = nullptr, *pass = nullptr;
        settings_get_camera_connection(&ip, &user, &pass);
        g_autofree gchar *state = camera_get_connection_state();
        json_t *data = json_pack("{s:s, s:s, s:s}", "ip", ip ? ip : "", "user", user ? user : "", "state",
                                 state ? state : "");
        g_free(ip);
        g_free(user);
        g_free(pass);
        return cgi_answer(response, data);
}

int cgi_get_camera_mounting_height(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_ranged_value(settings_get_mounting_height(), mounting_height_range));
}

int cgi_get_camera_pan_offset(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_ranged_value(settings_get_pan_offset(), pan_offset_range));
}

int cgi_get_camera_tilt_offset(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_ranged_value(settings_get_tilt_offset(), tilt_offset_range));
}

int cgi_get_camera_zoom_degree(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_ranged_value(settings_get_zoom_degree(), zoom_degree_range));
}

bool cgi_radar_offers(uint32_t classes, ObjectClass object_class)
{
        return (classes & (1u << object_class)) != 0;
}

int cgi_get_capabilities(const RcgiRequest *, RcgiResponse *response)
{
        const uint32_t classes = radar_metadata_get_object_classes();
        json_t *types = json_array();
        for (const ObjectType &type : object_types)
                if (cgi_radar_offers(classes, type.object_class))
                        json_array_append_new(types, json_string(type.name));
        return cgi_answer(response, json_pack("{s:{}, s:{s:i, s:i}, s:{s:o}}", "returnToHomeEnabled",
                                              "returnToHomeTimeout", "minValue", return_to_home_timeout_min,
                                              "maxValue", return_to_home_timeout_max, "objectTypesToTrack",
                                              "types", types));
}

int cgi_get_guard_tour_enabled(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_boolean_value(tracker_get_guard_tour_enabled()));
}

int cgi_get_guard_tour_time(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_ranged_value(static_cast<double>(tracker_get_guard_tour_time()),
                                                     guard_tour_time_range));
}

int cgi_get_object_types_to_track(const RcgiRequest *, RcgiResponse *response)
{
        const uint32_t classes = radar_metadata_get_object_classes();
        gboolean tracked[n_object_types];
        settings_get_object_types(&tracked[0], &tracked[1], &tracked[2], &tracked[3]);
        json_t *data = json_object();
        for (size_t i = 0; i < n_object_types; i++)
                if (cgi_radar_offers(classes, object_types[i].object_class))
                        json_object_set_new(data, object_types[i].name, json_boolean(tracked[i]));
        return cgi_answer(response, data);
}

int cgi_get_return_to_home_enabled(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_boolean_value(settings_get_return_to_home_enabled()));
}

int cgi_get_return_to_home_timeout(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, json_pack("{s:i, s:i, s:i}", "value", settings_get_return_to_home_timeout(),
                                              "minValue", return_to_home_timeout_min, "maxValue",
                                              return_to_home_timeout_max));
}

int cgi_get_tracking_enabled(const RcgiRequest *, RcgiResponse *response)
{
        return cgi_answer(response, cgi_boolean_value(tracking_get_enabled()));
}

int cgi_save_camera_pan_offset(const RcgiRequest *, RcgiResponse *response)
{
        if (!camera_is_connected())
                return rcgi_errorf(response, CGI_INVALID_STATE, "No camera connected");
        const double pan = camera_get_pan();
        settings_set_pan_offset(pan);
        persistent_set_pan_offset(pan);
        return cgi_answer_empty(response);
}

int cgi_save_camera_tilt_offset(const RcgiRequest *, RcgiResponse *response)
{
        if (!camera_is_connected())
                return rcgi_errorf(response, CGI_INVALID_STATE, "No camera connected");
        const double tilt = camera_get_tilt();
        settings_set_tilt_offset(tilt);
        persistent_set_tilt_offset(tilt);
        return cgi_answer_empty(response);
}

int cgi_set_camera_connection(const RcgiRequest *request, RcgiResponse *response)
{
        const char *ip = json_string_value(json_object_get(request->params, "ip"));
        const char *user = json_string_value(json_object_get(request->params, "user"));
        const char *pass = json_string_value(json_object_get(request->params, "pass"));
        if (!ip || !user || !pass)
                return CGI_FAULTY_PARAMETER;
        if (strlen(ip) >= checked_ip_length && !cgi_is_dotted_quad(ip))
                return rcgi_errorf(response, CGI_FAULTY_PARAMETER, "Invalid value '%s' for parameter '%s'", ip, "ip");
        settings_set_camera_connection(ip, user, pass);
        camera_request_reconnect();
        persistent_set_camera_connection(ip, user, pass);
        return cgi_answer_empty(response);
}

int cgi_set_camera_mounting_height(const RcgiRequest *request, RcgiResponse *response)
{
        double height;
        if (const int error = cgi_read_number(request, response, mounting_height_range, &height))
                return error;
        settings_set_mounting_height(height);
        persistent_set_mounting_height(height);
        return cgi_answer_empty(response);
}

int cgi_set_camera_pan_offset(const RcgiRequest *request, RcgiResponse *response)
{
        double degrees;
        if (const int error = cgi_read_number(request, response, pan_offset_range, &degrees))
                return error;
        settings_set_pan_offset(degrees);
        persistent_set_pan_offset(degrees);
        return cgi_answer_empty(response);
}

int cgi_set_camera_tilt_offset(const RcgiRequest *request, RcgiResponse *response)
{
        double degrees;
        if (const int error = cgi_read_number(request, response, tilt_offset_range, &degrees))
                return error;
        settings_set_tilt_offset(degrees);
        persistent_set_tilt_offset(degrees);
        return cgi_answer_empty(response);
}

int cgi_set_camera_zoom_degree(const RcgiRequest *request, RcgiResponse *response)
{
        double percent;
        if (const int error = cgi_read_number(request, response, zoom_degree_range, &percent))
                return error;
        settings_set_zoom_degree(percent);
        persistent_set_zoom_degree(percent);
        return cgi_answer_empty(response);
}

int cgi_set_guard_tour_enabled(const RcgiRequest *request, RcgiResponse *response)
{
        gboolean enabled;
        if (const int error = cgi_read_boolean(request, &enabled))
                return error;
        tracker_set_guard_tour_enabled(enabled);
        persistent_set_guard_tour_enabled(enabled);
        return cgi_answer_empty(response);
}

int cgi_set_guard_tour_time(const RcgiRequest *request, RcgiResponse *response)
{
        double seconds;
        if (const int error = cgi_read_number(request, response, guard_tour_time_range, &seconds))
                return error;
        tracker_set_guard_tour_time(static_cast<float>(seconds));
        persistent_set_guard_tour_time(seconds);
        return cgi_answer_empty(response);
}

// Changes only the switches named as JSON booleans; at least one must be.
int cgi_set_object_types_to_track(const RcgiRequest *request, RcgiResponse *response)
{
        const json_t *given[n_object_types];
        bool any = false;
        for (size_t i = 0; i < n_object_types; i++) {
                given[i] = json_object_get(request->params, object_types[i].name);
                any |= json_is_boolean(given[i]);
        }
        if (!any)
                return CGI_FAULTY_PARAMETER;
        gboolean tracked[n_object_types];
        settings_get_object_types(&tracked[0], &tracked[1], &tracked[2], &tracked[3]);
        for (size_t i = 0; i < n_object_types; i++)
                if (json_is_boolean(given[i]))
                        tracked[i] = json_is_true(given[i]);
        settings_set_object_types(tracked[0], tracked[1], tracked[2], tracked[3]);
        persistent_set_object_types(tracked[0], tracked[1], tracked[2], tracked[3]);
        return cgi_answer_empty(response);
}

int cgi_set_return_to_home_enabled(const RcgiRequest *request, RcgiResponse *response)
{
        gboolean enabled;
        if (const int error = cgi_read_boolean(request, &enabled))
                return error;
        settings_set_return_to_home_enabled(enabled);
        persistent_set_return_to_home_enabled(enabled);
        return cgi_answer_empty(response);
}

int cgi_set_return_to_home_timeout(const RcgiRequest *request, RcgiResponse *response)
{
        double seconds;
        const Range range{return_to_home_timeout_min, return_to_home_timeout_max};
        if (const int error = cgi_read_number(request, response, range, &seconds))
                return error;
        const int whole_seconds = static_cast<int>(seconds); // toward zero
        settings_set_return_to_home_timeout(whole_seconds);
        persistent_set_return_to_home_timeout(whole_seconds);
        return cgi_answer_empty(response);
}

int cgi_set_tracking_enabled(const RcgiRequest *request, RcgiResponse *response)
{
        gboolean enabled;
        if (const int error = cgi_read_boolean(request, &enabled))
                return error;
        radar_metadata_request_enabled(enabled);
        tracking_set_enabled(enabled);
        persistent_set_tracking_enabled(enabled);
        return cgi_answer_empty(response);
}

// The library's two flags per method: a method that takes parameters is refused without
// them, and a method that is not offered answers as unknown (every one is offered).
constexpr int takes_params = 1;
constexpr int no_params = 0;
constexpr int offered = 1;

constexpr RcgiMethod cgi_methods[] = {
        {"getCameraConnection", cgi_get_camera_connection, no_params, offered},
        {"getCameraMountingHeight", cgi_get_camera_mounting_height, no_params, offered},
        {"getCameraPanOffset", cgi_get_camera_pan_offset, no_params, offered},
        {"getCameraTiltOffset", cgi_get_camera_tilt_offset, no_params, offered},
        {"getCameraZoomDegree", cgi_get_camera_zoom_degree, no_params, offered},
        {"getCapabilities", cgi_get_capabilities, no_params, offered},
        {"getGuardTourEnabled", cgi_get_guard_tour_enabled, no_params, offered},
        {"getGuardTourTime", cgi_get_guard_tour_time, no_params, offered},
        {"getObjectTypesToTrack", cgi_get_object_types_to_track, no_params, offered},
        {"getReturnToHomeEnabled", cgi_get_return_to_home_enabled, no_params, offered},
        {"getReturnToHomeTimeout", cgi_get_return_to_home_timeout, no_params, offered},
        {"getTrackingEnabled", cgi_get_tracking_enabled, no_params, offered},
        {"saveCameraPanOffset", cgi_save_camera_pan_offset, no_params, offered},
        {"saveCameraTiltOffset", cgi_save_camera_tilt_offset, no_params, offered},
        {"setCameraConnection", cgi_set_camera_connection, takes_params, offered},
        {"setCameraMountingHeight", cgi_set_camera_mounting_height, takes_params, offered},
        {"setCameraPanOffset", cgi_set_camera_pan_offset, takes_params, offered},
        {"setCameraTiltOffset", cgi_set_camera_tilt_offset, takes_params, offered},
        {"setCameraZoomDegree", cgi_set_camera_zoom_degree, takes_params, offered},
        {"setGuardTourEnabled", cgi_set_guard_tour_enabled, takes_params, offered},
        {"setGuardTourTime", cgi_set_guard_tour_time, takes_params, offered},
        {"setObjectTypesToTrack", cgi_set_object_types_to_track, takes_params, offered},
        {"setReturnToHomeEnabled", cgi_set_return_to_home_enabled, takes_params, offered},
        {"setReturnToHomeTimeout", cgi_set_return_to_home_timeout, takes_params, offered},
        {"setTrackingEnabled", cgi_set_tracking_enabled, takes_params, offered},
        {}, // the end: every field zero
};

constexpr RcgiApiVersion cgi_versions[] = {
        {1, 1, cgi_methods, cgi_map_error_code, cgi_error_message, nullptr},
};

constexpr RcgiApi cgi_api = {1, cgi_versions, nullptr};

gboolean cgi_on_connection(gint, GIOCondition, gpointer)
{
        rcgi_perform(cgi.handle);
        return G_SOURCE_CONTINUE;
}

} // namespace

const char *cgi_error_message(int code)
{
        for (const CgiErrorText &text : error_texts)
                if (text.code == code)
                        return text.message;
        return "Internal error";
}

const RcgiApi *cgi_api_descriptor(void)
{
        return &cgi_api;
}

int cgi_map_error_code(int library_code)
{
        if (library_code < -7 || library_code > -1)
                return CGI_INTERNAL_ERROR;
        return library_error_codes[library_code + 7];
}

gboolean cgi_setup(void)
{
        const int sockets = sd_listen_fds(0);
        if (sockets != 1) {
                log_error("%sExpected one file descriptor from systemd, got %d.", sockets);
                return FALSE;
        }
        int watch_fd;
        const int r = rcgi_new(SD_LISTEN_FDS_START, 0, &cgi.handle, &watch_fd);
        if (r < 0) {
                log_error("%sFailed to set up CGI: %s", g_strerror(-r));
                return FALSE;
        }
        rcgi_add_path(cgi.handle, cgi_path, &cgi_api);
        cgi.watch = g_unix_fd_add(watch_fd, G_IO_IN, cgi_on_connection, nullptr);
        return TRUE;
}

void cgi_cleanup(void)
{
        g_clear_handle_id(&cgi.watch, g_source_remove);
        g_clear_pointer(&cgi.handle, rcgi_free);
}
