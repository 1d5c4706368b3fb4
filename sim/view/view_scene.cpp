#include "view_scene.h"

#include "scene.pb.h"

#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

constexpr size_t largest_packet = 1 << 20;
constexpr guint retry_ms = 1000;

struct SceneReader {
        ViewModel *model = nullptr;
        std::string path;
        int fd = -1;
        guint watch = 0;
        guint retry = 0;
        bool named = false; // the class names arrived on this connection
        std::vector<uint8_t> packet = std::vector<uint8_t>(largest_packet);
};

SceneReader reader;

void view_scene_schedule_connect(void);

void view_scene_disconnect(void)
{
        if (reader.watch)
                g_source_remove(reader.watch);
        reader.watch = 0;
        if (reader.fd >= 0)
                close(reader.fd);
        reader.fd = -1;
        view_lose_radar(reader.model);
}

void view_scene_take_names(const uint8_t *data, size_t size)
{
        std::vector<std::string> names;
        for (size_t i = 4; i < size;) {
                const auto *start = reinterpret_cast<const char *>(data + i);
                const size_t length = strnlen(start, size - i);
                names.emplace_back(start, length);
                i += length + 1;
        }
        reader.model->classes = std::move(names);
        reader.named = true;
}

// Reads every packet waiting; false when the connection is gone.
bool view_scene_read(void)
{
        for (;;) {
                const ssize_t n = recv(reader.fd, reader.packet.data(), reader.packet.size(), MSG_DONTWAIT);
                if (n < 0 && errno == EINTR)
                        continue;
                if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                        return true;
                if (n <= 0)
                        return false;
                const auto size = static_cast<size_t>(n);
                std::vector<ViewObject> objects;
                if (!reader.named && size >= 4 && memcmp(reader.packet.data(), "RSP1", 4) == 0)
                        view_scene_take_names(reader.packet.data(), size);
                else if (view_scene_objects(reader.packet.data(), size, &objects))
                        view_take_scene(reader.model, std::move(objects), g_get_monotonic_time());
        }
}

gboolean view_scene_readable(gint, GIOCondition, gpointer)
{
        if (view_scene_read())
                return G_SOURCE_CONTINUE;
        reader.watch = 0; // removed by returning
        view_scene_disconnect();
        view_scene_schedule_connect();
        return G_SOURCE_REMOVE;
}

bool view_scene_connect(void)
{
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (reader.path.size() >= sizeof(address.sun_path))
                return false;
        memcpy(address.sun_path, reader.path.c_str(), reader.path.size());
        reader.fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (reader.fd < 0 || connect(reader.fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
                view_scene_disconnect();
                return false;
        }
        reader.named = false;
        reader.model->radar_connected = true;
        reader.watch = g_unix_fd_add(reader.fd, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                                     view_scene_readable, nullptr);
        return true;
}

gboolean view_scene_retry(gpointer)
{
        if (view_scene_connect()) {
                reader.retry = 0;
                return G_SOURCE_REMOVE;
        }
        return G_SOURCE_CONTINUE;
}

void view_scene_schedule_connect(void)
{
        if (!reader.retry)
                reader.retry = g_timeout_add(retry_ms, view_scene_retry, nullptr);
}

} // namespace

bool view_scene_objects(const uint8_t *frame, size_t size, std::vector<ViewObject> *objects)
{
        if (size < 4)
                return false;
        const uint32_t length = (uint32_t{frame[0]} << 24) | (uint32_t{frame[1]} << 16) | (uint32_t{frame[2]} << 8) | frame[3];
        Scene scene;
        if (length < 4 || length > size || !scene.ParseFromArray(frame + 4, static_cast<int>(length - 4)))
                return false;
        for (const Object &o : scene.objects()) {
                ViewObject object;
                object.id = o.id();
                if (o.labels().labels_size() > 0)
                        object.class_index = o.labels().labels(0).id();
                object.range = o.position().x();
                object.azimuth = o.position().y();
                object.plane_x = o.bounding_box().left();
                object.plane_y = o.bounding_box().top();
                objects->push_back(object);
        }
        return true;
}

void view_scene_start(ViewModel *model, const char *socket_path)
{
        reader.model = model;
        reader.path = socket_path;
        if (!view_scene_connect())
                view_scene_schedule_connect();
}

void view_scene_stop(void)
{
        if (reader.retry)
                g_source_remove(reader.retry);
        reader.retry = 0;
        if (reader.model)
                view_scene_disconnect();
}
