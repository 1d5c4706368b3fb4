/* The transport: connections accepted from the listening socket and served by a
 * SoupServer on the main context; each POST to a registered path goes through the
 * envelope (rcgi_envelope.c). */
#define _GNU_SOURCE /* accept4 */
#include "rcgi.h"

#include "rcgi_envelope.h"

#include <gio/gio.h>
#include <libsoup/soup.h>

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

/* Connections accepted per wake-up: a flood of them must not starve the main loop; the
 * descriptor stays readable and the next wake-up takes the rest. */
#define RCGI_ACCEPT_BATCH 32
/* Bytes of a chunked body seen so far, on the message. */
#define RCGI_BODY_SIZE_KEY "rcgi-body-size"

struct RcgiHandle {
        int fd;
        SoupServer *server;
        GHashTable *apis; /* path -> const RcgiApi * */
};

static void rcgi_set_status(SoupServerMessage *message, guint status)
{
        SoupMessageHeaders *headers = soup_server_message_get_response_headers(message);

        soup_server_message_set_status(message, status, NULL);
        /* One request per connection. libsoup never lets go of a connection it was handed
         * as a stream once its client closes it between requests (its descriptor stays
         * open for good), and a refusal before the body was read leaves that body in the
         * way; saying so keeps a client from sending its next request into a closing
         * connection. */
        soup_message_headers_replace(headers, "Connection", "close");
        if (status == SOUP_STATUS_METHOD_NOT_ALLOWED)
                soup_message_headers_replace(headers, "Allow", "POST");
}

/* The status that refuses the request before its body is read, or 0 to read it. */
static guint rcgi_refusal(RcgiHandle *handle, SoupServerMessage *message, const char *path)
{
        SoupMessageHeaders *headers = soup_server_message_get_request_headers(message);

        if (!g_hash_table_contains(handle->apis, path))
                return SOUP_STATUS_NOT_FOUND;
        if (strcmp(soup_server_message_get_method(message), SOUP_METHOD_POST) != 0)
                return SOUP_STATUS_METHOD_NOT_ALLOWED;
        if (soup_message_headers_get_encoding(headers) == SOUP_ENCODING_CONTENT_LENGTH &&
            soup_message_headers_get_content_length(headers) > RCGI_MAX_BODY_SIZE)
                return SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE;
        return 0;
}

/* A body without a length (chunked) is counted as it arrives; past the limit the rest is
 * read but no longer kept, and the request is answered 413. */
static void rcgi_on_chunk(SoupServerMessage *message, GBytes *chunk, gpointer user_data)
{
        const gsize size = GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(message), RCGI_BODY_SIZE_KEY)) +
                           g_bytes_get_size(chunk);

        (void)user_data;
        g_object_set_data(G_OBJECT(message), RCGI_BODY_SIZE_KEY, GSIZE_TO_POINTER(size));
        if (size > RCGI_MAX_BODY_SIZE) {
                soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
                soup_message_body_truncate(soup_server_message_get_request_body(message));
        }
}

/* Runs once the headers are in: refuses what needs no body, so that a body that is too
 * large, or not wanted at all, is never buffered. */
static void rcgi_on_headers(SoupServer *server, SoupServerMessage *message, const char *path, GHashTable *query,
                            gpointer user_data)
{
        const guint refusal = rcgi_refusal(user_data, message, path);

        (void)server;
        (void)query;
        if (refusal)
                rcgi_set_status(message, refusal);
        else
                g_signal_connect(message, "got-chunk", G_CALLBACK(rcgi_on_chunk), NULL);
}

static void rcgi_on_request(SoupServer *server, SoupServerMessage *message, const char *path, GHashTable *query,
                            gpointer user_data)
{
        RcgiHandle *handle = user_data;
        const guint refusal = rcgi_refusal(handle, message, path);
        GBytes *body;
        char *answer;

        (void)server;
        (void)query;
        if (refusal || GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(message), RCGI_BODY_SIZE_KEY)) > RCGI_MAX_BODY_SIZE) {
                rcgi_set_status(message, refusal ? refusal : SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE);
                return;
        }
        body = soup_message_body_flatten(soup_server_message_get_request_body(message));
        answer = rcgi_dispatch(g_hash_table_lookup(handle->apis, path), g_bytes_get_data(body, NULL),
                               g_bytes_get_size(body));
        g_bytes_unref(body);
        if (!answer) {
                rcgi_set_status(message, SOUP_STATUS_INTERNAL_SERVER_ERROR);
                return;
        }
        rcgi_set_status(message, SOUP_STATUS_OK);
        soup_server_message_set_response(message, "application/json", SOUP_MEMORY_COPY, answer, strlen(answer));
        free(answer);
}

static int rcgi_check_listening(int fd)
{
        int type, listening;
        socklen_t size = sizeof(type);

        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) < 0)
                return -errno;
        if (type != SOCK_STREAM)
                return -ESOCKTNOSUPPORT;
        size = sizeof(listening);
        if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) < 0)
                return -errno;
        return listening ? 0 : -EINVAL;
}

int rcgi_new(int fd, int flags, RcgiHandle **handle, int *watch_fd)
{
        RcgiHandle *created;
        int r, status_flags;

        if (!handle || !watch_fd || flags != 0)
                return -EINVAL;
        r = rcgi_check_listening(fd);
        if (r < 0)
                return r;
        /* Accepting must never block the main loop, even when a client gave up between
         * the wake-up and the accept. */
        status_flags = fcntl(fd, F_GETFL);
        if (status_flags < 0 || fcntl(fd, F_SETFL, status_flags | O_NONBLOCK) < 0)
                return -errno;

        created = g_new0(RcgiHandle, 1);
        created->fd = fd;
        created->server = soup_server_new(NULL, NULL);
        created->apis = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
        soup_server_add_early_handler(created->server, NULL, rcgi_on_headers, created, NULL);
        soup_server_add_handler(created->server, NULL, rcgi_on_request, created, NULL);
        *handle = created;
        *watch_fd = fd;
        return 0;
}

int rcgi_add_path(RcgiHandle *handle, const char *path, const RcgiApi *api)
{
        if (!handle || !path || path[0] != '/' || !rcgi_api_is_complete(api))
                return -EINVAL;
        if (g_hash_table_contains(handle->apis, path))
                return -EEXIST;
        g_hash_table_insert(handle->apis, g_strdup(path), (gpointer)api);
        return 0;
}

/* Hands one accepted connection to the server, which serves it asynchronously. */
static void rcgi_serve(RcgiHandle *handle, int fd)
{
        GSocket *socket = g_socket_new_from_fd(fd, NULL);
        GSocketAddress *local = socket ? g_socket_get_local_address(socket, NULL) : NULL;
        GSocketAddress *remote = socket ? g_socket_get_remote_address(socket, NULL) : NULL;

        if (local && remote) {
                GSocketConnection *connection = g_socket_connection_factory_create_connection(socket);
                soup_server_accept_iostream(handle->server, G_IO_STREAM(connection), local, remote, NULL);
                g_object_unref(connection);
        } else if (!socket) {
                close(fd);
        }
        g_clear_object(&local);
        g_clear_object(&remote);
        g_clear_object(&socket);
}

int rcgi_perform(RcgiHandle *handle)
{
        int accepted = 0;

        if (!handle)
                return -EINVAL;
        while (accepted < RCGI_ACCEPT_BATCH) {
                const int fd = accept4(handle->fd, NULL, NULL, SOCK_NONBLOCK | SOCK_CLOEXEC);
                if (fd >= 0) {
                        rcgi_serve(handle, fd);
                        accepted++;
                } else if (errno == EAGAIN) { /* EWOULDBLOCK is the same on Linux */
                        break;
                } else if (errno != EINTR && errno != ECONNABORTED) {
                        return accepted ? accepted : -errno;
                }
        }
        return accepted;
}

void rcgi_free(RcgiHandle *handle)
{
        if (!handle)
                return;
        soup_server_disconnect(handle->server);
        g_object_unref(handle->server);
        g_hash_table_unref(handle->apis);
        g_free(handle);
}
