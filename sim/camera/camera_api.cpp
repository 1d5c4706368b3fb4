#include "camera_api.h"

#include "camera_params.h"
#include "camera_tls.h"
#include "log.h"

#include <gio/gunixsocketaddress.h>
#include <libsoup/soup.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <vector>

namespace {

constexpr char realm[] = "Zelk PTZ camera";
constexpr char user_key[] = "sim-camera-user";       // the user an auth callback saw, on the message
constexpr char read_at_key[] = "sim-camera-read-at"; // when the request was read
constexpr char logged_key[] = "sim-camera-logged";   // logged already (requests never answered)

struct ApiPort {
        ApiPort(const char *scheme_name, bool with_tls) : scheme(scheme_name), tls(with_tls) {}
        const char *scheme;
        bool tls;
        uint16_t port = 0;
        SoupServer *server = nullptr;
        GSocketService *service = nullptr; // null while the port is closed
        std::vector<GSocketConnection *> connections;
        uint64_t accepted = 0;
        SoupAuthDomain *basic = nullptr;
        SoupAuthDomain *digest = nullptr;
        bool basic_added = false;
        bool digest_added = false;
};

struct CameraApi {
        SimCamera *camera = nullptr;
        CameraApiConfig config;
        GTlsCertificate *certificate = nullptr;
        std::array<ApiPort, 2> ports{ApiPort{"http", false}, ApiPort{"https", true}};
};

CameraApi api;

ApiPort &simcam_api_http(void)
{
        return api.ports[0];
}

ApiPort &simcam_api_https(void)
{
        return api.ports[1];
}

ApiPort &simcam_api_other(const ApiPort *port)
{
        return port == &simcam_api_http() ? simcam_api_https() : simcam_api_http();
}

bool simcam_api_fault(CameraFault fault)
{
        return sim_camera_fault_on(*api.camera, fault);
}

// Faults that answer before authentication, as the camera's web server does.
bool simcam_api_answers_unauthenticated(const ApiPort *port)
{
        return simcam_api_fault(CameraFault::no_answer) || simcam_api_fault(CameraFault::redirect_loop) ||
               (simcam_api_fault(CameraFault::redirect_https) && !port->tls);
}

// ---- connections

void simcam_api_forget_closed(ApiPort *port)
{
        std::erase_if(port->connections, [](GSocketConnection *connection) {
                if (!g_socket_is_closed(g_socket_connection_get_socket(connection)) &&
                    !g_io_stream_is_closed(G_IO_STREAM(connection)))
                        return false;
                g_object_unref(connection);
                return true;
        });
}

gboolean simcam_api_incoming(GSocketService *, GSocketConnection *connection, GObject *, gpointer data)
{
        auto *port = static_cast<ApiPort *>(data);
        port->accepted++;
        simcam_api_forget_closed(port);
        port->connections.push_back(G_SOCKET_CONNECTION(g_object_ref(connection)));
        // A reply goes out in more than one write: without this, Nagle holds the last one
        // back for the client's delayed acknowledgement, some 40 ms a request.
        g_socket_set_option(g_socket_connection_get_socket(connection), IPPROTO_TCP, TCP_NODELAY, 1, nullptr);

        g_autoptr(GError) error = nullptr;
        g_autoptr(GIOStream) stream = G_IO_STREAM(g_object_ref(connection));
        if (port->tls) {
                g_autoptr(GIOStream) plain = g_steal_pointer(&stream);
                stream = g_tls_server_connection_new(plain, api.certificate, &error);
        }
        g_autoptr(GSocketAddress) local = g_socket_connection_get_local_address(connection, nullptr);
        g_autoptr(GSocketAddress) remote = g_socket_connection_get_remote_address(connection, nullptr);
        if (!stream || !soup_server_accept_iostream(port->server, stream, local, remote, &error))
                log_warning("%s%s: connection not served: %s", port->scheme, error->message);
        return TRUE;
}

// Ends the open connections the way a camera that stopped serving the port would.
void simcam_api_drop_connections(ApiPort *port)
{
        for (GSocketConnection *connection : port->connections) {
                g_socket_shutdown(g_socket_connection_get_socket(connection), TRUE, TRUE, nullptr);
                g_object_unref(connection);
        }
        port->connections.clear();
}

bool simcam_api_open(ApiPort *port, GError **error)
{
        g_autoptr(GSocketAddress) address = simcam_api_socket_address(api.config, port->port, error);
        if (!address)
                return false;
        g_autoptr(GSocket) socket = g_socket_new(g_socket_address_get_family(address), G_SOCKET_TYPE_STREAM,
                                                 G_SOCKET_PROTOCOL_TCP, error);
        if (!socket)
                return false;
        // A link-local address may still be tentative (duplicate address detection).
        const int one = 1;
        setsockopt(g_socket_get_fd(socket), SOL_IP, IP_FREEBIND, &one, sizeof(one));
        if (!g_socket_bind(socket, address, TRUE, error) || !g_socket_listen(socket, error))
                return false;
        g_autoptr(GSocketAddress) bound = g_socket_get_local_address(socket, error);
        if (!bound)
                return false;
        port->port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound)); // port 0 picks one
        port->service = g_socket_service_new();
        if (!g_socket_listener_add_socket(G_SOCKET_LISTENER(port->service), socket, nullptr, error)) {
                g_clear_object(&port->service);
                return false;
        }
        g_signal_connect(port->service, "incoming", G_CALLBACK(simcam_api_incoming), port);
        g_socket_service_start(port->service);
        return true;
}

void simcam_api_close(ApiPort *port)
{
        if (!port->service)
                return;
        g_socket_service_stop(port->service);
        g_socket_listener_close(G_SOCKET_LISTENER(port->service));
        g_clear_object(&port->service);
        simcam_api_drop_connections(port);
}

// ---- authentication

gboolean simcam_api_auth_filter(SoupAuthDomain *, SoupServerMessage *, gpointer data)
{
        return !simcam_api_answers_unauthenticated(static_cast<ApiPort *>(data));
}

bool simcam_api_credentials_accepted(const char *user)
{
        return !simcam_api_fault(CameraFault::wrong_credentials) && api.camera->user == user;
}

void simcam_api_note_user(SoupServerMessage *msg, const char *user)
{
        g_object_set_data_full(G_OBJECT(msg), user_key, g_strdup(user), g_free);
}

gboolean simcam_api_basic_auth(SoupAuthDomain *, SoupServerMessage *msg, const char *user, const char *password, gpointer)
{
        if (!simcam_api_credentials_accepted(user) || api.camera->password != password)
                return FALSE;
        simcam_api_note_user(msg, user);
        return TRUE;
}

// Digest: the password's hash for libsoup to check the response against.
char *simcam_api_digest_auth(SoupAuthDomain *, SoupServerMessage *msg, const char *user, gpointer)
{
        if (!simcam_api_credentials_accepted(user))
                return nullptr;
        simcam_api_note_user(msg, user);
        return soup_auth_domain_digest_encode_password(user, realm, api.camera->password.c_str());
}

void simcam_api_make_auth_domains(ApiPort *port)
{
        port->basic = soup_auth_domain_basic_new("realm", realm, nullptr);
        soup_auth_domain_basic_set_auth_callback(port->basic, simcam_api_basic_auth, port, nullptr);
        port->digest = soup_auth_domain_digest_new("realm", realm, nullptr);
        soup_auth_domain_digest_set_auth_callback(port->digest, simcam_api_digest_auth, port, nullptr);
        for (SoupAuthDomain *domain : {port->basic, port->digest}) {
                soup_auth_domain_add_path(domain, "/");
                soup_auth_domain_set_filter(domain, simcam_api_auth_filter, port, nullptr);
        }
}

void simcam_api_offer(ApiPort *port, SoupAuthDomain *domain, bool *added, bool wanted)
{
        if (wanted && !*added)
                soup_server_add_auth_domain(port->server, domain);
        else if (!wanted && *added)
                soup_server_remove_auth_domain(port->server, domain);
        *added = wanted;
}

void simcam_api_offer_schemes(ApiPort *port)
{
        const AuthSchemes schemes = api.camera->auth;
        simcam_api_offer(port, port->basic, &port->basic_added, schemes != AuthSchemes::digest);
        simcam_api_offer(port, port->digest, &port->digest_added, schemes != AuthSchemes::basic);
}

// ---- requests

std::string simcam_api_path(SoupServerMessage *msg)
{
        GUri *uri = soup_server_message_get_uri(msg);
        const char *path = g_uri_get_path(uri);
        std::string text = path[0] == '/' ? path + 1 : path;
        if (const char *query = g_uri_get_query(uri))
                text += std::string("?") + query;
        return text;
}

void simcam_api_log(ApiPort *port, SoupServerMessage *msg, unsigned status)
{
        if (g_object_get_data(G_OBJECT(msg), logged_key))
                return;
        g_object_set_data(G_OBJECT(msg), logged_key, GINT_TO_POINTER(1));
        const auto *read_at = static_cast<const gint64 *>(g_object_get_data(G_OBJECT(msg), read_at_key));
        const auto *user = static_cast<const char *>(g_object_get_data(G_OBJECT(msg), user_key));
        RequestRecord record{.seq = 0,
                             .t_us = read_at ? *read_at : g_get_monotonic_time(),
                             .scheme = port->scheme,
                             .path = simcam_api_path(msg),
                             .status = status,
                             .user = user && status != SOUP_STATUS_UNAUTHORIZED ? user : ""};
        sim_camera_log_request(api.camera, std::move(record));
}

void simcam_api_request_read(SoupServer *, SoupServerMessage *msg, gpointer)
{
        auto *read_at = g_new(gint64, 1);
        *read_at = g_get_monotonic_time();
        g_object_set_data_full(G_OBJECT(msg), read_at_key, read_at, g_free);
}

void simcam_api_request_finished(SoupServer *, SoupServerMessage *msg, gpointer data)
{
        simcam_api_log(static_cast<ApiPort *>(data), msg, soup_server_message_get_status(msg));
}

// Always with a length, also when empty: a reply without one ends the connection.
void simcam_api_reply(SoupServerMessage *msg, unsigned status, const std::string &body)
{
        const std::string sent = simcam_api_fault(CameraFault::huge_reply) ? body + std::string(1 << 20, '\n') : body;
        soup_server_message_set_status(msg, status, nullptr);
        soup_server_message_set_response(msg, "text/plain", SOUP_MEMORY_COPY, sent.c_str(), sent.size());
}

void simcam_api_redirect(SoupServerMessage *msg, const ApiPort &to)
{
        const char *host = g_uri_get_host(soup_server_message_get_uri(msg));
        const bool literal_v6 = host && strchr(host, ':');
        g_autofree gchar *location = g_strdup_printf("%s://%s%s%s:%u/%s", to.scheme, literal_v6 ? "[" : "",
                                                     host ? host : api.config.address.c_str(), literal_v6 ? "]" : "",
                                                     static_cast<unsigned>(to.port), simcam_api_path(msg).c_str());
        // Written as it is: the camera's Location names the port even when it is the default,
        // and a page comes with it, as web servers send.
        simcam_api_reply(msg, SOUP_STATUS_FOUND, "<html><body>Moved</body></html>\n");
        soup_message_headers_replace(soup_server_message_get_response_headers(msg), "Location", location);
}

void simcam_api_ptz(SoupServerMessage *msg, GHashTable *query)
{
        PtzCommand command;
        std::string error;
        if (!simcam_params_parse_ptz(query, &command, &error)) {
                simcam_api_reply(msg, SOUP_STATUS_BAD_REQUEST, error + "\n");
                return;
        }
        if (command.kind == PtzCommand::Kind::query_position) {
                simcam_api_reply(msg, SOUP_STATUS_OK, simcam_params_position(*api.camera));
                return;
        }
        simcam_params_apply_ptz(api.camera, command);
        simcam_api_reply(msg, SOUP_STATUS_OK, ""); // 204 would end the connection (libsoup 3.2)
}

void simcam_api_param(SoupServerMessage *msg, GHashTable *query)
{
        const char *action = query ? static_cast<const char *>(g_hash_table_lookup(query, "action")) : nullptr;
        const char *group = query ? static_cast<const char *>(g_hash_table_lookup(query, "group")) : nullptr;
        if (g_strcmp0(action, "list") != 0) {
                simcam_api_reply(msg, SOUP_STATUS_BAD_REQUEST, "# Error: unsupported action\n");
                return;
        }
        std::string reply;
        if (!simcam_params_list(*api.camera, group, &reply))
                reply = std::string("# Error: Error -1 getting param in group '") + group + "'\n";
        simcam_api_reply(msg, SOUP_STATUS_OK, reply);
}

void simcam_api_handle(SoupServer *, SoupServerMessage *msg, const char *path, GHashTable *query, gpointer data)
{
        auto *port = static_cast<ApiPort *>(data);
        const char *method = soup_server_message_get_method(msg);
        if (simcam_api_fault(CameraFault::no_answer)) {
                soup_server_message_pause(msg); // and never unpaused
                simcam_api_log(port, msg, 0);
        } else if (simcam_api_fault(CameraFault::redirect_loop)) {
                simcam_api_redirect(msg, simcam_api_other(port));
        } else if (simcam_api_fault(CameraFault::redirect_https) && !port->tls) {
                simcam_api_redirect(msg, simcam_api_https());
        } else if (!g_str_equal(method, "GET") && !g_str_equal(method, "POST")) {
                soup_message_headers_append(soup_server_message_get_response_headers(msg), "Allow", "GET, POST");
                simcam_api_reply(msg, SOUP_STATUS_METHOD_NOT_ALLOWED, "");
        } else if (g_str_equal(path, "/zelk-cgi/com/ptz.cgi")) {
                simcam_api_ptz(msg, query);
        } else if (g_str_equal(path, "/zelk-cgi/param.cgi")) {
                simcam_api_param(msg, query);
        } else {
                simcam_api_reply(msg, SOUP_STATUS_NOT_FOUND, "# Error: not found\n");
        }
}

// libsoup keeps a connection alive only while its server has a listener of its own; the
// connections it gets come from our listeners. A listener on an abstract Unix address
// that nobody knows satisfies it and never accepts anything.
bool simcam_api_keep_alive_listener(ApiPort *port, GError **error)
{
        g_autofree gchar *name = g_strdup_printf("sim-camera-%d-%s-keep-alive", static_cast<int>(getpid()), port->scheme);
        g_autoptr(GSocketAddress) address = g_unix_socket_address_new_with_type(name, -1, G_UNIX_SOCKET_ADDRESS_ABSTRACT);
        g_autoptr(GSocket) socket = g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, error);
        return socket && g_socket_bind(socket, address, FALSE, error) && g_socket_listen(socket, error) &&
               soup_server_listen_socket(port->server, socket, static_cast<SoupServerListenOptions>(0), error);
}

bool simcam_api_make_server(ApiPort *port, GError **error)
{
        port->server = soup_server_new("server-header", "sim-camera ", nullptr);
        soup_server_add_handler(port->server, nullptr, simcam_api_handle, port, nullptr);
        g_signal_connect(port->server, "request-read", G_CALLBACK(simcam_api_request_read), port);
        g_signal_connect(port->server, "request-finished", G_CALLBACK(simcam_api_request_finished), port);
        simcam_api_make_auth_domains(port);
        simcam_api_offer_schemes(port);
        return simcam_api_keep_alive_listener(port, error);
}

} // namespace

GSocketAddress *simcam_api_socket_address(const CameraApiConfig &config, uint16_t port, GError **error)
{
        g_autoptr(GInetAddress) address = g_inet_address_new_from_string(config.address.c_str());
        if (!address) {
                g_set_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT, "%s is not an IP address", config.address.c_str());
                return nullptr;
        }
        guint scope = 0;
        if (!config.interface.empty() && (scope = if_nametoindex(config.interface.c_str())) == 0) {
                g_set_error(error, G_IO_ERROR, G_IO_ERROR_NOT_FOUND, "no interface %s", config.interface.c_str());
                return nullptr;
        }
        return G_SOCKET_ADDRESS(g_object_new(G_TYPE_INET_SOCKET_ADDRESS, "address", address, "port", port, "scope-id",
                                             scope, nullptr));
}

bool simcam_api_setup(SimCamera *camera, const CameraApiConfig &config, GError **error)
{
        api.camera = camera;
        api.config = config;
        simcam_api_http().port = config.http_port;
        simcam_api_https().port = config.https_port;
        api.certificate = simcam_tls_certificate_new("sim-camera", error);
        if (!api.certificate)
                return false;
        for (ApiPort &port : api.ports)
                if (!simcam_api_make_server(&port, error))
                        return false;
        if (!simcam_api_open(&simcam_api_https(), error))
                return false;
        if (!sim_camera_fault_on(*camera, CameraFault::https_only) && !simcam_api_open(&simcam_api_http(), error))
                return false;
        return true;
}

void simcam_api_refresh(void)
{
        for (ApiPort &port : api.ports)
                simcam_api_offer_schemes(&port);
        ApiPort &http = simcam_api_http();
        const bool closed = simcam_api_fault(CameraFault::https_only);
        if (closed) {
                simcam_api_close(&http);
                return;
        }
        g_autoptr(GError) error = nullptr;
        if (!http.service && !simcam_api_open(&http, &error))
                log_warning("%shttp port %u does not open again: %s", static_cast<unsigned>(http.port), error->message);
}

void simcam_api_teardown(void)
{
        for (ApiPort &port : api.ports) {
                simcam_api_close(&port);
                if (port.server)
                        soup_server_disconnect(port.server);
                g_clear_object(&port.server);
                g_clear_object(&port.basic);
                g_clear_object(&port.digest);
                port.basic_added = port.digest_added = false;
        }
        g_clear_object(&api.certificate);
}

uint64_t simcam_api_http_connections(void)
{
        return simcam_api_http().accepted;
}

uint64_t simcam_api_https_connections(void)
{
        return simcam_api_https().accepted;
}
