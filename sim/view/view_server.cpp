#include "view_server.h"

#include "soup_unix.h"

#include <libsoup/soup.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct ViewServer {
        const ViewModel *model = nullptr;
        SoupServer *server = nullptr;
        std::string socket_path;
        std::string www_dir;
        guint timer = 0;
        std::vector<SoupServerMessage *> listeners; // of /sim/updates, each referenced
};

ViewServer view;

char *view_server_status_text(void)
{
        json_t *status = view_status(*view.model, g_get_monotonic_time());
        char *text = json_dumps(status, JSON_COMPACT | JSON_REAL_PRECISION(6));
        json_decref(status);
        return text;
}

const char *view_server_content_type(const std::string &name)
{
        static const std::pair<const char *, const char *> types[] = {
                {".html", "text/html; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
                {".js", "text/javascript; charset=utf-8"}, {".svg", "image/svg+xml"}};
        for (const auto &[suffix, type] : types)
                if (g_str_has_suffix(name.c_str(), suffix))
                        return type;
        return nullptr;
}

// A file of the www directory by its bare name: no directories, nothing hidden.
void view_server_file(SoupServerMessage *msg, const std::string &name)
{
        const char *type = view_server_content_type(name);
        const bool plain = !name.empty() && name[0] != '.' && name.find('/') == std::string::npos;
        gchar *contents = nullptr;
        gsize size = 0;
        if (!type || !plain ||
            !g_file_get_contents((view.www_dir + "/" + name).c_str(), &contents, &size, nullptr)) {
                soup_server_message_set_status(msg, SOUP_STATUS_NOT_FOUND, nullptr);
                return;
        }
        soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Cache-Control", "no-cache");
        soup_server_message_set_status(msg, SOUP_STATUS_OK, nullptr);
        soup_server_message_set_response(msg, type, SOUP_MEMORY_TAKE, contents, size);
}

void view_server_status(SoupServerMessage *msg)
{
        char *text = view_server_status_text();
        soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Cache-Control", "no-store");
        soup_server_message_set_status(msg, SOUP_STATUS_OK, nullptr);
        soup_server_message_set_response(msg, "application/json", SOUP_MEMORY_TAKE, text, strlen(text));
}

void view_server_send(SoupServerMessage *msg, const std::string &event)
{
        soup_message_body_append(soup_server_message_get_response_body(msg), SOUP_MEMORY_COPY, event.data(),
                                 event.size());
        soup_server_message_unpause(msg);
}

void view_server_listener_gone(SoupServerMessage *msg, gpointer)
{
        const auto found = std::find(view.listeners.begin(), view.listeners.end(), msg);
        if (found == view.listeners.end())
                return;
        view.listeners.erase(found);
        g_object_unref(msg);
}

std::string view_server_event(void)
{
        char *text = view_server_status_text();
        std::string event = std::string("data: ") + text + "\n\n";
        free(text);
        return event;
}

// Server-sent events: the answer never ends; each update is one chunk. Proxies are told
// not to buffer it.
void view_server_updates(SoupServerMessage *msg)
{
        SoupMessageHeaders *headers = soup_server_message_get_response_headers(msg);
        soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
        soup_message_headers_set_content_type(headers, "text/event-stream", nullptr);
        soup_message_headers_replace(headers, "Cache-Control", "no-store");
        soup_message_headers_replace(headers, "X-Accel-Buffering", "no");
        soup_message_body_set_accumulate(soup_server_message_get_response_body(msg), FALSE);
        soup_server_message_set_status(msg, SOUP_STATUS_OK, nullptr);
        g_signal_connect(msg, "finished", G_CALLBACK(view_server_listener_gone), nullptr);
        view.listeners.push_back(SOUP_SERVER_MESSAGE(g_object_ref(msg)));
        view_server_send(msg, "retry: 1000\n\n" + view_server_event());
}

gboolean view_server_push(gpointer)
{
        if (view.listeners.empty())
                return G_SOURCE_CONTINUE;
        const std::string event = view_server_event();
        for (SoupServerMessage *msg : std::vector<SoupServerMessage *>(view.listeners))
                view_server_send(msg, event);
        return G_SOURCE_CONTINUE;
}

// A relative Location, so that it holds behind whichever proxy and host name.
void view_server_redirect(SoupServerMessage *msg)
{
        soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Location", "/sim/");
        soup_server_message_set_status(msg, SOUP_STATUS_MOVED_PERMANENTLY, nullptr);
}

void view_server_handle(SoupServer *, SoupServerMessage *msg, const char *path, GHashTable *, gpointer)
{
        const char *method = soup_server_message_get_method(msg);
        if (!g_str_equal(method, "GET") && !g_str_equal(method, "HEAD")) {
                soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Allow", "GET, HEAD");
                soup_server_message_set_status(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, nullptr);
                return;
        }
        const std::string p = path;
        if (p == "/sim")
                view_server_redirect(msg);
        else if (p == "/sim/status")
                view_server_status(msg);
        else if (p == "/sim/updates")
                view_server_updates(msg);
        else if (p == "/sim/")
                view_server_file(msg, "index.html");
        else if (p.rfind("/sim/", 0) == 0)
                view_server_file(msg, p.substr(5));
        else
                soup_server_message_set_status(msg, SOUP_STATUS_NOT_FOUND, nullptr);
}


} // namespace

bool view_server_start(const ViewModel *model, const char *socket_path, const char *www_dir, double rate_hz,
                       GError **error)
{
        view.model = model;
        view.socket_path = socket_path;
        view.www_dir = www_dir;
        view.server = soup_server_new("server-header", "sim-view ", nullptr);
        soup_server_add_handler(view.server, nullptr, view_server_handle, nullptr, nullptr);
        if (!sim_soup_listen_unix(view.server, socket_path, error))
                return false;
        view.timer = g_timeout_add(static_cast<guint>(1000.0 / rate_hz), view_server_push, nullptr);
        return true;
}

void view_server_stop(void)
{
        if (view.timer)
                g_source_remove(view.timer);
        view.timer = 0;
        for (SoupServerMessage *msg : view.listeners) {
                g_signal_handlers_disconnect_by_func(msg, reinterpret_cast<gpointer>(view_server_listener_gone), nullptr);
                g_object_unref(msg);
        }
        view.listeners.clear();
        if (!view.server)
                return;
        soup_server_disconnect(view.server);
        g_clear_object(&view.server);
        unlink(view.socket_path.c_str());
}
