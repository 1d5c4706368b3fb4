/* Stand-in for the radar unit's scene subscriber library. The provider is another process
 * serving a SOCK_SEQPACKET Unix socket: on every connection it first sends "RSP1" and the
 * classification names (each ended by NUL, in class-index order), then one scene frame
 * per packet. */
#define _GNU_SOURCE /* POLLRDHUP */
#include "radar_scene_subscriber.h"

#include <glib.h>

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#define RSS_DEFAULT_SOCKET "/run/radar/scene-provider.sock"
#define RSS_SOCKET_ENV "RADAR_SCENE_PROVIDER_SOCKET"
#define RSS_HELLO_MAGIC "RSP1"
#define RSS_HELLO_MAGIC_SIZE 4
#define RSS_RECONNECT_INTERVAL_MS 1000
/* How long a fresh connection may take to send its classification packet. */
#define RSS_HELLO_TIMEOUT_MS 2000
/* A frame whose length field claims more than this is dropped rather than padded. */
#define RSS_MAX_FRAME_SIZE (16u * 1024u * 1024u)
#define RSS_FRAME_HEADER_SIZE 4u
/* poll()'s "no time limit", and a descriptor it skips (a wait for the wake-up alone). */
#define RSS_WAIT_FOREVER (-1)
#define RSS_NO_FD (-1)

struct RadarSceneSubscriber {
        /* A pthread mutex rather than a GMutex, so ThreadSanitizer sees it; an
         * error-checking one, so an unlock without the lock stops the program. Guards
         * everything above the reader. */
        pthread_mutex_t mutex;
        char **names;
        int n_names;
        GPtrArray *retired_names; /* earlier lists: they stay valid until delete */
        RadarSceneMessageCallback callback;
        int reconnect;

        GThread *reader;
        int wake_fd; /* readable when the reader must stop */
};

typedef enum {
        RSS_WAIT_READY,
        RSS_WAIT_WOKEN,
        RSS_WAIT_TIMEOUT,
} RssWait;

static void rss_lock(RadarSceneSubscriber *subscriber)
{
        const int r = pthread_mutex_lock(&subscriber->mutex);
        g_assert(r == 0);
}

static void rss_unlock(RadarSceneSubscriber *subscriber)
{
        const int r = pthread_mutex_unlock(&subscriber->mutex);
        g_assert(r == 0);
}

static const char *rss_socket_path(void)
{
        const char *path = g_getenv(RSS_SOCKET_ENV);
        return path && *path ? path : RSS_DEFAULT_SOCKET;
}

/* A connected descriptor, or a negative errno. */
static int rss_connect(void)
{
        struct sockaddr_un address = {.sun_family = AF_UNIX};
        const char *path = rss_socket_path();
        int fd;

        /* A path that fills sun_path leaves no room for its NUL. */
        if (strnlen(path, sizeof(address.sun_path)) == sizeof(address.sun_path))
                return -ENAMETOOLONG;
        strcpy(address.sun_path, path);
        fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (fd < 0)
                return -errno;
        if (connect(fd, (const struct sockaddr *)&address, sizeof(address)) < 0) {
                const int r = -errno;
                close(fd);
                return r;
        }
        return fd;
}

/* Waits until fd is readable (or hung up), the wake descriptor fires, or the time-out
 * passes. fd < 0 waits on the wake descriptor alone: poll passes over a negative fd. */
static RssWait rss_wait(int fd, int wake_fd, int timeout_ms)
{
        struct pollfd fds[2] = {{.fd = wake_fd, .events = POLLIN}, {.fd = fd, .events = POLLIN}};
        int ready;

        do
                ready = poll(fds, 2, timeout_ms);
        while (ready < 0 && errno == EINTR);
        if (ready < 0 || (fds[0].revents & POLLIN))
                return RSS_WAIT_WOKEN;
        if (ready == 0)
                return RSS_WAIT_TIMEOUT;
        return RSS_WAIT_READY;
}

/* TRUE when the peer has closed its end. */
static gboolean rss_peer_closed(int fd)
{
        struct pollfd pfd = {.fd = fd, .events = POLLRDHUP};
        return poll(&pfd, 1, 0) > 0 && (pfd.revents & (POLLRDHUP | POLLHUP | POLLERR));
}

/* Reads one whole packet into a malloc'ed buffer. NULL when the connection is gone. An
 * empty packet reads as 0 just like the end of the connection; only the hang-up tells
 * them apart. */
static uint8_t *rss_receive_packet(int fd, size_t *size)
{
        ssize_t peeked;
        ssize_t received;
        uint8_t *packet;

        do
                peeked = recv(fd, NULL, 0, MSG_PEEK | MSG_TRUNC);
        while (peeked < 0 && errno == EINTR);
        if (peeked < 0 || (peeked == 0 && rss_peer_closed(fd)))
                return NULL;
        packet = malloc(peeked > 0 ? (size_t)peeked : 1);
        if (!packet)
                return NULL;
        /* The peek found the packet: this read does not wait, so no signal cuts it short. */
        received = recv(fd, packet, (size_t)peeked, 0);
        if (received < 0) {
                free(packet);
                return NULL;
        }
        *size = (size_t)received;
        return packet;
}

static uint32_t rss_read_be32(const uint8_t *bytes)
{
        uint32_t big_endian;

        memcpy(&big_endian, bytes, sizeof(big_endian));
        return GUINT32_FROM_BE(big_endian);
}

/* Grows a packet so that it is never shorter than its own length field says, with zero
 * bytes. NULL (and the packet freed) when the claimed length is beyond reason. */
static uint8_t *rss_pad_frame(uint8_t *packet, size_t size)
{
        uint8_t *grown;
        uint8_t header[RSS_FRAME_HEADER_SIZE] = {0};

        memcpy(header, packet, MIN(size, sizeof(header)));
        const size_t wanted = MAX(MAX(size, (size_t)rss_read_be32(header)), RSS_FRAME_HEADER_SIZE);
        if (wanted == size)
                return packet;
        if (wanted > RSS_MAX_FRAME_SIZE) {
                g_warning("radar_scene_subscriber: dropping a %zu-byte packet whose length field claims %zu bytes",
                          size, wanted);
                free(packet);
                return NULL;
        }
        grown = realloc(packet, wanted);
        if (!grown) {
                free(packet);
                return NULL;
        }
        memset(grown + size, 0, wanted - size);
        return grown;
}

/* Splits an "RSP1" packet into its names. FALSE when the packet is not one. */
static gboolean rss_parse_names(const uint8_t *packet, size_t size, char ***names, int *n_names)
{
        GPtrArray *list;
        size_t start = RSS_HELLO_MAGIC_SIZE;

        if (size < RSS_HELLO_MAGIC_SIZE || memcmp(packet, RSS_HELLO_MAGIC, RSS_HELLO_MAGIC_SIZE) != 0)
                return FALSE;
        list = g_ptr_array_new();
        while (start < size) {
                const uint8_t *end = memchr(packet + start, '\0', size - start);
                const size_t length = end ? (size_t)(end - (packet + start)) : size - start;
                g_ptr_array_add(list, g_strndup((const char *)packet + start, length));
                start += length + 1;
        }
        *n_names = (int)list->len;
        g_ptr_array_add(list, NULL);
        *names = (char **)g_ptr_array_free(list, FALSE);
        return TRUE;
}

/* Keeps the names of a (re)connection. An unchanged list is dropped; a changed one
 * replaces the current list, which stays allocated for callers that still hold it. */
static void rss_adopt_names(RadarSceneSubscriber *subscriber, char **names, int n_names)
{
        rss_lock(subscriber);
        if (subscriber->names && g_strv_equal((const gchar *const *)subscriber->names,
                                              (const gchar *const *)names)) {
                g_strfreev(names);
        } else {
                if (subscriber->names)
                        g_ptr_array_add(subscriber->retired_names, subscriber->names);
                subscriber->names = names;
                subscriber->n_names = n_names;
        }
        rss_unlock(subscriber);
}

/* Reads the classification packet that opens every connection. */
static gboolean rss_read_hello(RadarSceneSubscriber *subscriber, int fd, int wake_fd)
{
        size_t size;
        uint8_t *packet;
        char **names;
        int n_names;
        gboolean ok;

        packet = rss_wait(fd, wake_fd, RSS_HELLO_TIMEOUT_MS) == RSS_WAIT_READY ? rss_receive_packet(fd, &size) : NULL;
        if (!packet)
                return FALSE;
        ok = rss_parse_names(packet, size, &names, &n_names);
        free(packet);
        if (ok)
                rss_adopt_names(subscriber, names, n_names);
        return ok;
}

/* Hands every frame of one connection to the callback until the connection ends or the
 * reader is told to stop. TRUE when told to stop. */
static gboolean rss_deliver_frames(RadarSceneSubscriber *subscriber, int fd)
{
        for (;;) {
                size_t size;
                uint8_t *frame;
                RadarSceneMessageCallback callback;
                const RssWait wait = rss_wait(fd, subscriber->wake_fd, RSS_WAIT_FOREVER);

                if (wait == RSS_WAIT_WOKEN)
                        return TRUE;
                frame = rss_receive_packet(fd, &size);
                if (!frame)
                        return FALSE;
                frame = rss_pad_frame(frame, size);
                if (!frame)
                        continue;
                rss_lock(subscriber);
                callback = subscriber->callback;
                rss_unlock(subscriber);
                if (callback)
                        callback(frame);
                else
                        free(frame);
        }
}

static gboolean rss_reconnect_enabled(RadarSceneSubscriber *subscriber)
{
        gboolean enabled;

        rss_lock(subscriber);
        enabled = subscriber->reconnect != 0;
        rss_unlock(subscriber);
        return enabled;
}

static gpointer rss_reader(gpointer data)
{
        RadarSceneSubscriber *subscriber = data;

        for (;;) {
                const int fd = rss_connect();
                gboolean stop = FALSE;

                if (fd >= 0) {
                        if (rss_read_hello(subscriber, fd, subscriber->wake_fd))
                                stop = rss_deliver_frames(subscriber, fd);
                        close(fd);
                }
                if (stop || !rss_reconnect_enabled(subscriber))
                        break;
                if (rss_wait(RSS_NO_FD, subscriber->wake_fd, RSS_RECONNECT_INTERVAL_MS) == RSS_WAIT_WOKEN)
                        break;
        }
        return NULL;
}

RadarSceneSubscriber *radar_scene_subscriber_create(int source, int format, int flags)
{
        RadarSceneSubscriber *subscriber;

        (void)source;
        (void)format;
        (void)flags;
        subscriber = g_new0(RadarSceneSubscriber, 1);
        subscriber->mutex = (pthread_mutex_t)PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
        subscriber->retired_names = g_ptr_array_new_with_free_func((GDestroyNotify)g_strfreev);
        subscriber->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        return subscriber;
}

void radar_scene_subscriber_delete(RadarSceneSubscriber *subscriber)
{
        if (!subscriber)
                return;
        radar_scene_subscriber_unsubscribe(subscriber);
        if (subscriber->wake_fd >= 0)
                close(subscriber->wake_fd);
        g_strfreev(subscriber->names);
        g_ptr_array_free(subscriber->retired_names, TRUE);
        pthread_mutex_destroy(&subscriber->mutex);
        g_free(subscriber);
}

void radar_scene_subscriber_set_bounding_box_enabled(RadarSceneSubscriber *subscriber)
{
        /* The provider always sends bounding boxes. */
        (void)subscriber;
}

void radar_scene_subscriber_set_on_message_arrived_callback(RadarSceneSubscriber *subscriber,
                                                            RadarSceneMessageCallback callback)
{
        rss_lock(subscriber);
        subscriber->callback = callback;
        rss_unlock(subscriber);
}

void radar_scene_subscriber_set_reconnect(RadarSceneSubscriber *subscriber, int reconnect)
{
        rss_lock(subscriber);
        subscriber->reconnect = reconnect;
        rss_unlock(subscriber);
}

int radar_scene_subscriber_get_object_classifications(RadarSceneSubscriber *subscriber,
                                                      char ***classifications)
{
        int n_names;

        rss_lock(subscriber);
        const gboolean known = subscriber->names != NULL;
        rss_unlock(subscriber);
        if (!known) {
                const int fd = rss_connect();
                if (fd >= 0) {
                        rss_read_hello(subscriber, fd, subscriber->wake_fd);
                        close(fd);
                }
        }
        rss_lock(subscriber);
        *classifications = subscriber->names;
        n_names = subscriber->names ? subscriber->n_names : 0;
        rss_unlock(subscriber);
        return n_names;
}

int radar_scene_subscriber_subscribe(RadarSceneSubscriber *subscriber)
{
        if (subscriber->wake_fd < 0)
                return -EBADF;
        if (subscriber->reader)
                return -EALREADY;
        subscriber->reader = g_thread_new("scene-reader", rss_reader, subscriber);
        return 0;
}

int radar_scene_subscriber_unsubscribe(RadarSceneSubscriber *subscriber)
{
        const uint64_t one = 1;
        uint64_t drained;

        if (!subscriber->reader)
                return -EINVAL;
        if (write(subscriber->wake_fd, &one, sizeof(one)) != (ssize_t)sizeof(one))
                return -errno;
        g_thread_join(subscriber->reader);
        subscriber->reader = NULL;
        /* Leave the wake descriptor quiet for the next subscribe. */
        while (read(subscriber->wake_fd, &drained, sizeof(drained)) > 0)
                ;
        return 0;
}
