// The provider side of the scene socket: a SOCK_SEQPACKET Unix socket whose clients each
// get the "RSP1" classification packet on connection, then every published packet.
#pragma once

#include "scene.pb.h"

#include <glib.h>

#include <cstddef>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

// One frame as the provider writes it: 4-byte big-endian total length, then the message.
std::vector<uint8_t> scene_publisher_frame(const Scene &scene);

class ScenePublisher {
public:
        explicit ScenePublisher(std::vector<std::string> classes);
        ~ScenePublisher();
        ScenePublisher(const ScenePublisher &) = delete;
        ScenePublisher &operator=(const ScenePublisher &) = delete;

        // Binds and listens at path (a stale socket file there is replaced) and accepts
        // clients on context (NULL: the default context).
        bool listen(const std::string &path, GMainContext *context, GError **error);

        // Sends one packet to every client; safe from any thread. A client whose socket
        // is full misses this packet; one that has gone away is dropped.
        void publish(const uint8_t *packet, size_t size);
        void publish_scene(const Scene &scene);

        // Connections accepted so far, and a wait (bounded by timeout_ms) for that count
        // to reach total. Lets a test know its subscriber has had the classification packet.
        size_t accepted() const;
        bool wait_for_accepted(size_t total, int timeout_ms) const;

private:
        static gboolean on_connection(gint fd, GIOCondition condition, gpointer data);
        void accept_client();

        std::vector<uint8_t> hello_;
        std::string path_;
        int listen_fd_ = -1;
        GSource *accept_source_ = nullptr;

        mutable std::mutex mutex_; // guards the clients and the count
        mutable std::condition_variable accepted_cond_;
        std::vector<int> clients_;
        size_t accepted_ = 0;
};
