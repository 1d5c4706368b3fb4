#include "camera_rtsp.h"

#include "metadata_payloader.h"
#include "ptz_status_xml.h"

#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr guint packet_interval_ms = 100;
constexpr char playing_key[] = "sim-camera-playing";
constexpr char role[] = "user";
// Few buffers wait for a client that has not started playing; the oldest go first.
constexpr char launch[] = "( appsrc name=metadata is-live=true format=time do-timestamp=true max-buffers=2 "
                          "leaky-type=downstream caps=application/x-sim-ptz-status ! simcammetapay name=pay0 pt=107 )";

struct CameraRtsp {
        SimCamera *camera = nullptr;
        GstRTSPServer *server = nullptr;
        guint server_source = 0;
        guint packet_timer = 0;
        GstRTSPAuth *auth = nullptr;
        std::string basic;       // the Basic credential registered, base64
        std::string digest_user; // the user registered for Digest
        // Clients connect on the main loop and close on the server's client thread.
        GMutex clients_mutex;
        std::vector<GstRTSPClient *> clients;
        // Sources of prepared media: added on the main loop, removed when the media is
        // unprepared, which may happen on another thread.
        GMutex sources_mutex;
        std::vector<GstElement *> sources;
        uint64_t packets = 0;
};

CameraRtsp rtsp;

// Takes item out of a list shared between threads; whether it was there, so that the
// caller drops the list's reference once.
template <typename T>
bool simcam_rtsp_remove(GMutex *mutex, std::vector<T *> *list, T *item)
{
        g_mutex_lock(mutex);
        const auto at = std::find(list->begin(), list->end(), item);
        const bool found = at != list->end();
        if (found)
                list->erase(at);
        g_mutex_unlock(mutex);
        return found;
}

// ---- credentials

// Clients are served on the server's own threads: the new credentials go in before the
// old ones are taken out, so that a client asking meanwhile never finds none.
void simcam_rtsp_register_credentials(void)
{
        const SimCamera &camera = *rtsp.camera;
        const int methods = (camera.auth != AuthSchemes::digest ? GST_RTSP_AUTH_BASIC : 0) |
                            (camera.auth != AuthSchemes::basic ? GST_RTSP_AUTH_DIGEST : 0);
        gst_rtsp_auth_set_supported_methods(rtsp.auth, static_cast<GstRTSPAuthMethod>(methods));
        std::string basic, digest_user;
        if (!sim_camera_fault_on(camera, CameraFault::wrong_credentials)) {
                GstRTSPToken *token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, role, nullptr);
                g_autofree gchar *made = gst_rtsp_auth_make_basic(camera.user.c_str(), camera.password.c_str());
                basic = made;
                digest_user = camera.user;
                gst_rtsp_auth_add_basic(rtsp.auth, basic.c_str(), token);
                gst_rtsp_auth_add_digest(rtsp.auth, digest_user.c_str(), camera.password.c_str(), token);
                gst_rtsp_token_unref(token);
        }
        if (!rtsp.basic.empty() && rtsp.basic != basic)
                gst_rtsp_auth_remove_basic(rtsp.auth, rtsp.basic.c_str());
        if (!rtsp.digest_user.empty() && rtsp.digest_user != digest_user)
                gst_rtsp_auth_remove_digest(rtsp.auth, rtsp.digest_user.c_str());
        rtsp.basic = basic;
        rtsp.digest_user = digest_user;
}

// ---- clients

GstRTSPStatusCode simcam_rtsp_refuse_unoffered(GstRTSPClient *, GstRTSPContext *, gpointer)
{
        return sim_camera_offers_stream(rtsp.camera->identity) ? GST_RTSP_STS_OK : GST_RTSP_STS_NOT_FOUND;
}

void simcam_rtsp_client_plays(GstRTSPClient *client, GstRTSPContext *, gpointer)
{
        g_object_set_data(G_OBJECT(client), playing_key, GINT_TO_POINTER(1));
}

void simcam_rtsp_client_closed(GstRTSPClient *client, gpointer)
{
        if (simcam_rtsp_remove(&rtsp.clients_mutex, &rtsp.clients, client))
                g_object_unref(client);
}

// The clients, each with a reference of the caller's.
std::vector<GstRTSPClient *> simcam_rtsp_take_clients(bool remove)
{
        g_mutex_lock(&rtsp.clients_mutex);
        std::vector<GstRTSPClient *> clients = rtsp.clients;
        if (remove)
                rtsp.clients.clear();
        else
                for (GstRTSPClient *client : clients)
                        g_object_ref(client);
        g_mutex_unlock(&rtsp.clients_mutex);
        return clients;
}

void simcam_rtsp_client_connected(GstRTSPServer *, GstRTSPClient *client, gpointer)
{
        // RTP goes out interleaved in this connection, a packet in more than one write:
        // without this, Nagle holds the rest back for the client's delayed acknowledgement.
        GstRTSPConnection *connection = gst_rtsp_client_get_connection(client);
        if (connection)
                g_socket_set_option(gst_rtsp_connection_get_write_socket(connection), IPPROTO_TCP, TCP_NODELAY, 1,
                                    nullptr);
        g_mutex_lock(&rtsp.clients_mutex);
        rtsp.clients.push_back(GST_RTSP_CLIENT(g_object_ref(client)));
        g_mutex_unlock(&rtsp.clients_mutex);
        g_signal_connect(client, "closed", G_CALLBACK(simcam_rtsp_client_closed), nullptr);
        g_signal_connect(client, "play-request", G_CALLBACK(simcam_rtsp_client_plays), nullptr);
        for (const char *request : {"pre-describe-request", "pre-setup-request", "pre-play-request"})
                g_signal_connect(client, request, G_CALLBACK(simcam_rtsp_refuse_unoffered), nullptr);
}

// Ends the RTSP connection of every client that is streaming: the client reads the end
// of its connection in the middle of the stream.
void simcam_rtsp_drop_streams(void)
{
        for (GstRTSPClient *client : simcam_rtsp_take_clients(false)) {
                if (g_object_get_data(G_OBJECT(client), playing_key))
                        gst_rtsp_client_close(client);
                g_object_unref(client);
        }
}

// ---- media

void simcam_rtsp_media_unprepared(GstRTSPMedia *, gpointer data)
{
        auto *source = static_cast<GstElement *>(data);
        if (simcam_rtsp_remove(&rtsp.sources_mutex, &rtsp.sources, source))
                gst_object_unref(source);
}

void simcam_rtsp_media_configure(GstRTSPMediaFactory *, GstRTSPMedia *media, gpointer)
{
        g_autoptr(GstElement) bin = gst_rtsp_media_get_element(media);
        GstElement *source = gst_bin_get_by_name(GST_BIN(bin), "metadata");
        if (!source)
                return;
        g_signal_connect(media, "unprepared", G_CALLBACK(simcam_rtsp_media_unprepared), source);
        g_mutex_lock(&rtsp.sources_mutex);
        rtsp.sources.push_back(source);
        g_mutex_unlock(&rtsp.sources_mutex);
}

gboolean simcam_rtsp_send(gpointer)
{
        g_autoptr(GDateTime) now = g_date_time_new_now_utc();
        const std::string xml = simcam_ptz_status_xml(*rtsp.camera, now);
        g_mutex_lock(&rtsp.sources_mutex);
        for (GstElement *source : rtsp.sources) {
                GstBuffer *buffer = gst_buffer_new_memdup(xml.data(), xml.size());
                if (gst_app_src_push_buffer(GST_APP_SRC(source), buffer) == GST_FLOW_OK)
                        rtsp.packets++;
        }
        g_mutex_unlock(&rtsp.sources_mutex);
        if (sim_camera_fault_on(*rtsp.camera, CameraFault::stream_drop))
                simcam_rtsp_drop_streams();
        return G_SOURCE_CONTINUE;
}

GstRTSPMediaFactory *simcam_rtsp_factory(void)
{
        GstRTSPMediaFactory *factory = gst_rtsp_media_factory_new();
        gst_rtsp_media_factory_set_launch(factory, launch);
        gst_rtsp_media_factory_set_shared(factory, FALSE);
        gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
        gst_rtsp_media_factory_add_role(factory, role, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                        GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
        g_signal_connect(factory, "media-configure", G_CALLBACK(simcam_rtsp_media_configure), nullptr);
        return factory;
}

// The address as the server resolves it: a link-local one carries its interface.
std::string simcam_rtsp_address(const CameraApiConfig &config)
{
        g_autoptr(GInetAddress) address = g_inet_address_new_from_string(config.address.c_str());
        if (address && g_inet_address_get_is_link_local(address) && !config.interface.empty())
                return config.address + "%" + config.interface;
        return config.address;
}

} // namespace

bool simcam_rtsp_setup(SimCamera *camera, const CameraApiConfig &config, uint16_t port, GError **error)
{
        rtsp.camera = camera;
        gst_init(nullptr, nullptr);
        if (!simcam_metadata_payloader_register() || !gst_element_factory_find("appsrc")) {
                g_set_error(error, G_IO_ERROR, G_IO_ERROR_NOT_FOUND, "GStreamer's appsrc or the payloader is missing");
                return false;
        }
        rtsp.server = gst_rtsp_server_new();
        gst_rtsp_server_set_address(rtsp.server, simcam_rtsp_address(config).c_str());
        g_autofree gchar *service = g_strdup_printf("%u", static_cast<unsigned>(port));
        gst_rtsp_server_set_service(rtsp.server, service);
        rtsp.auth = gst_rtsp_auth_new();
        simcam_rtsp_register_credentials();
        gst_rtsp_server_set_auth(rtsp.server, rtsp.auth);
        g_autoptr(GstRTSPMountPoints) mounts = gst_rtsp_server_get_mount_points(rtsp.server);
        gst_rtsp_mount_points_add_factory(mounts, simcam_rtsp_path, simcam_rtsp_factory());
        g_signal_connect(rtsp.server, "client-connected", G_CALLBACK(simcam_rtsp_client_connected), nullptr);
        rtsp.server_source = gst_rtsp_server_attach(rtsp.server, nullptr);
        if (rtsp.server_source == 0) {
                g_set_error(error, G_IO_ERROR, G_IO_ERROR_FAILED, "cannot listen on RTSP port %s", service);
                return false;
        }
        rtsp.packet_timer = g_timeout_add(packet_interval_ms, simcam_rtsp_send, nullptr);
        return true;
}

void simcam_rtsp_refresh(void)
{
        if (rtsp.auth)
                simcam_rtsp_register_credentials();
}

void simcam_rtsp_teardown(void)
{
        if (rtsp.packet_timer)
                g_source_remove(rtsp.packet_timer);
        rtsp.packet_timer = 0;
        if (rtsp.server_source)
                g_source_remove(rtsp.server_source);
        rtsp.server_source = 0;
        for (GstRTSPClient *client : simcam_rtsp_take_clients(true)) {
                gst_rtsp_client_close(client);
                g_object_unref(client);
        }
        g_mutex_lock(&rtsp.sources_mutex);
        for (GstElement *source : rtsp.sources)
                gst_object_unref(source);
        rtsp.sources.clear();
        g_mutex_unlock(&rtsp.sources_mutex);
        g_clear_object(&rtsp.auth);
        g_clear_object(&rtsp.server);
}

uint64_t simcam_rtsp_clients(void)
{
        g_mutex_lock(&rtsp.clients_mutex);
        const size_t n = rtsp.clients.size();
        g_mutex_unlock(&rtsp.clients_mutex);
        return n;
}

uint64_t simcam_rtsp_packets(void)
{
        return rtsp.packets;
}
