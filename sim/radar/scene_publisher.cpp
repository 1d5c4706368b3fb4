#include "scene_publisher.h"

#include <glib-unix.h>
#include <gio/gio.h>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr char hello_magic[] = "RSP1";
constexpr size_t frame_header_size = 4;

std::vector<uint8_t> publisher_hello(const std::vector<std::string> &classes)
{
        std::vector<uint8_t> hello(hello_magic, hello_magic + 4);
        for (const std::string &name : classes) {
                hello.insert(hello.end(), name.begin(), name.end());
                hello.push_back('\0');
        }
        return hello;
}

// FALSE when the client has gone away; a full socket only loses this packet.
bool publisher_send(int fd, const uint8_t *packet, size_t size)
{
        ssize_t sent;
        do
                sent = send(fd, packet, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        while (sent < 0 && errno == EINTR);
        return sent >= 0 || errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS;
}

bool publisher_set_error(GError **error, const char *what)
{
        const int saved = errno;
        g_set_error(error, G_IO_ERROR, g_io_error_from_errno(saved), "%s: %s", what, g_strerror(saved));
        return false;
}

} // namespace

std::vector<uint8_t> scene_publisher_frame(const Scene &scene)
{
        const size_t message_size = scene.ByteSizeLong();
        const auto length = static_cast<uint32_t>(message_size + frame_header_size);
        std::vector<uint8_t> frame(frame_header_size + message_size);
        frame[0] = static_cast<uint8_t>(length >> 24);
        frame[1] = static_cast<uint8_t>(length >> 16);
        frame[2] = static_cast<uint8_t>(length >> 8);
        frame[3] = static_cast<uint8_t>(length);
        scene.SerializeToArray(frame.data() + frame_header_size, static_cast<int>(message_size));
        return frame;
}

ScenePublisher::ScenePublisher(std::vector<std::string> classes) : hello_(publisher_hello(classes))
{
}

ScenePublisher::~ScenePublisher()
{
        if (accept_source_) {
                g_source_destroy(accept_source_);
                g_source_unref(accept_source_);
        }
        for (int fd : clients_)
                close(fd);
        if (listen_fd_ >= 0) {
                close(listen_fd_);
                unlink(path_.c_str());
        }
}

bool ScenePublisher::listen(const std::string &path, GMainContext *context, GError **error)
{
        sockaddr_un address{};
        if (path.size() >= sizeof(address.sun_path)) {
                g_set_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT, "socket path too long: %s",
                            path.c_str());
                return false;
        }
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

        listen_fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (listen_fd_ < 0)
                return publisher_set_error(error, "socket");
        unlink(path.c_str());
        if (bind(listen_fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0 ||
            ::listen(listen_fd_, 16) < 0) {
                publisher_set_error(error, path.c_str());
                close(listen_fd_);
                listen_fd_ = -1;
                return false;
        }
        path_ = path;
        accept_source_ = g_unix_fd_source_new(listen_fd_, G_IO_IN);
        g_source_set_callback(accept_source_, G_SOURCE_FUNC(on_connection), this, nullptr);
        g_source_attach(accept_source_, context);
        return true;
}

gboolean ScenePublisher::on_connection(gint, GIOCondition, gpointer data)
{
        static_cast<ScenePublisher *>(data)->accept_client();
        return G_SOURCE_CONTINUE;
}

void ScenePublisher::accept_client()
{
        const int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
                return;
        std::lock_guard lock(mutex_);
        // The classification packet goes first, before any frame can be published to it.
        if (publisher_send(fd, hello_.data(), hello_.size()))
                clients_.push_back(fd);
        else
                close(fd);
        accepted_++;
        accepted_cond_.notify_all();
}

void ScenePublisher::publish(const uint8_t *packet, size_t size)
{
        std::lock_guard lock(mutex_);
        std::erase_if(clients_, [&](int fd) {
                if (publisher_send(fd, packet, size))
                        return false;
                close(fd);
                return true;
        });
}

void ScenePublisher::publish_scene(const Scene &scene)
{
        const std::vector<uint8_t> frame = scene_publisher_frame(scene);
        publish(frame.data(), frame.size());
}

size_t ScenePublisher::accepted() const
{
        std::lock_guard lock(mutex_);
        return accepted_;
}

bool ScenePublisher::wait_for_accepted(size_t total, int timeout_ms) const
{
        std::unique_lock lock(mutex_);
        return accepted_cond_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                       [&] { return accepted_ >= total; });
}
