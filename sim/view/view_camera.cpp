#include "view_camera.h"

#include <gio/gunixsocketaddress.h>
#include <libsoup/soup.h>

#include <memory>
#include <string>

namespace {

constexpr guint poll_ms = 50;
constexpr int log_every = 2; // the request log at half the status rate

struct JsonUnref {
        void operator()(json_t *json) const { json_decref(json); }
};
using Json = std::unique_ptr<json_t, JsonUnref>;

struct CameraReader {
        ViewModel *model = nullptr;
        SoupSession *session = nullptr;
        GCancellable *cancellable = nullptr;
        guint timer = 0;
        int ticks = 0;
        bool status_pending = false;
        bool log_pending = false;
        uint64_t next_request = 0;
};

CameraReader reader;

using Answer = void (*)(GBytes *body);

struct Pending {
        SoupMessage *message;
        Answer answer;
};

void view_camera_answered(GObject *source, GAsyncResult *result, gpointer data)
{
        std::unique_ptr<Pending> pending(static_cast<Pending *>(data));
        GError *error = nullptr;
        GBytes *body = soup_session_send_and_read_finish(SOUP_SESSION(source), result, &error);
        if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
                pending->answer(body && soup_message_get_status(pending->message) == SOUP_STATUS_OK ? body : nullptr);
        if (body)
                g_bytes_unref(body);
        g_clear_error(&error);
        g_object_unref(pending->message);
}

// Sends GET path; answer gets the body of a 200 answer, or nullptr.
void view_camera_get(const std::string &path, Answer answer)
{
        auto *pending = new Pending{soup_message_new("GET", ("http://camera" + path).c_str()), answer};
        soup_session_send_and_read_async(reader.session, pending->message, G_PRIORITY_DEFAULT, reader.cancellable,
                                         view_camera_answered, pending);
}

void view_camera_take_status(GBytes *body)
{
        reader.status_pending = false;
        ViewCamera camera = reader.model->camera;
        gsize size = 0;
        const auto *text = body ? static_cast<const char *>(g_bytes_get_data(body, &size)) : nullptr;
        if (!text || !view_camera_from_status(text, size, &camera))
                camera.reachable = false;
        view_take_camera(reader.model, camera, g_get_monotonic_time());
}

void view_camera_take_log(GBytes *body)
{
        reader.log_pending = false;
        std::vector<int64_t> moves;
        gsize size = 0;
        const auto *text = body ? static_cast<const char *>(g_bytes_get_data(body, &size)) : nullptr;
        if (text)
                view_camera_moves(text, size, &moves, &reader.next_request);
        view_take_moves(reader.model, moves, g_get_monotonic_time());
}

gboolean view_camera_tick(gpointer)
{
        if (!reader.status_pending) {
                reader.status_pending = true;
                view_camera_get("/status", view_camera_take_status);
        }
        if (++reader.ticks % log_every == 0 && !reader.log_pending) {
                reader.log_pending = true;
                view_camera_get("/requests?since=" + std::to_string(reader.next_request), view_camera_take_log);
        }
        return G_SOURCE_CONTINUE;
}

double view_camera_number(json_t *object, const char *key, double otherwise)
{
        json_t *value = json_object_get(object, key);
        return json_is_number(value) ? json_number_value(value) : otherwise;
}

} // namespace

bool view_camera_from_status(const char *text, size_t size, ViewCamera *camera)
{
        Json status(json_loadb(text, size, 0, nullptr));
        if (!json_is_object(status.get()) || !json_is_number(json_object_get(status.get(), "pan")))
                return false;
        json_t *s = status.get();
        json_t *angles = json_object_get(s, "field_angle");
        json_t *connections = json_object_get(s, "connections");
        camera->reachable = true;
        camera->pan = view_camera_number(s, "pan", 0.0);
        camera->tilt = view_camera_number(s, "tilt", 0.0);
        camera->zoom = view_camera_number(s, "zoom", 1.0);
        camera->moving = json_is_true(json_object_get(s, "moving"));
        camera->min_field_angle = static_cast<int>(view_camera_number(angles, "min", camera->min_field_angle));
        camera->max_field_angle = static_cast<int>(view_camera_number(angles, "max", camera->max_field_angle));
        camera->connections = static_cast<uint64_t>(view_camera_number(connections, "http", 0.0) +
                                                    view_camera_number(connections, "https", 0.0));
        camera->requests = static_cast<uint64_t>(view_camera_number(s, "requests", 0.0));
        camera->rtsp_clients = static_cast<uint64_t>(view_camera_number(json_object_get(s, "rtsp"), "clients", 0.0));
        return true;
}

bool view_camera_moves(const char *text, size_t size, std::vector<int64_t> *moves_us, uint64_t *next)
{
        static const std::string move_prefix = "zelk-cgi/com/ptz.cgi?continuouspantiltmove=";
        Json log(json_loadb(text, size, 0, nullptr));
        json_t *requests = json_object_get(log.get(), "requests");
        json_t *following = json_object_get(log.get(), "next");
        if (!json_is_array(requests) || !json_is_integer(following))
                return false;
        size_t i;
        json_t *request;
        json_array_foreach(requests, i, request)
        {
                const char *path = json_string_value(json_object_get(request, "path"));
                json_t *t_us = json_object_get(request, "t_us");
                if (path && json_is_integer(t_us) && g_str_has_prefix(path, move_prefix.c_str()))
                        moves_us->push_back(json_integer_value(t_us));
        }
        *next = static_cast<uint64_t>(json_integer_value(following));
        return true;
}

void view_camera_start(ViewModel *model, const char *control_socket)
{
        reader.model = model;
        g_autoptr(GSocketAddress) address = g_unix_socket_address_new(control_socket);
        reader.session = soup_session_new_with_options("remote-connectable", address, "timeout", 2, nullptr);
        reader.cancellable = g_cancellable_new();
        reader.timer = g_timeout_add(poll_ms, view_camera_tick, nullptr);
}

void view_camera_stop(void)
{
        if (reader.timer)
                g_source_remove(reader.timer);
        reader.timer = 0;
        if (reader.cancellable)
                g_cancellable_cancel(reader.cancellable);
        g_clear_object(&reader.cancellable);
        g_clear_object(&reader.session);
}
