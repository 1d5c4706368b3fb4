// The camera connection manager: connects to the configured camera, probes what it
// offers, chooses where positions come from, decides on an autotune, publishes every
// state change, and runs the camera link's timers on the main loop.
#include "camera.h"
#include "camera_connection.h"

#include "autotune.h"
#include "camera_position.h"
#include "events.h"
#include "http_client.h"
#include "metadata_feed.h"
#include "persistent.h"
#include "ptz_commands.h"
#include "ptz_tracking.h"
#include "radar_metadata.h"
#include "settings.h"
#include "tracking.h"

#include <cstring>

namespace {

constexpr guint control_tick_ms = 100;
constexpr guint position_poll_ms = 500;
// Shorter addresses cannot be a camera's; they mean "no camera".
constexpr size_t shortest_camera_address = 7;
constexpr const char *stream_port = "554";
constexpr const char *stream_path = "zelk-media/media.amp?video=0&audio=0&ptz=all";

struct CameraLink {
        CameraConnectionState state = CAMERA_DISCONNECTED;
        PositionSource source = POSITION_UNPROBED;
        guint poll_timer; // 0 when none runs, or when the running one ends after this run
        gboolean reconnect_requested = TRUE;
        gchar *product_number;
        gchar *camera_name; // the model the controller's gains were tuned for
        // Kept so that shutdown can remove them; each ends itself by returning FALSE.
        guint control_tick;
        guint autotune_tick;
};

CameraLink camera_link; // file-level, so it starts zeroed: only non-zero starts are written

const char *const state_names[] = {"disconnected", "connecting", "autotune", "connected", "connect_failed"};

struct CameraConnection {
        gchar *ip = nullptr;
        gchar *user = nullptr;
        gchar *pass = nullptr;

        CameraConnection() { settings_get_camera_connection(&ip, &user, &pass); }
        ~CameraConnection()
        {
                g_free(ip);
                g_free(user);
                g_free(pass);
        }
        CameraConnection(const CameraConnection &) = delete;
        CameraConnection &operator=(const CameraConnection &) = delete;
};

void camera_leave_for(CameraConnectionState state)
{
        if (camera_link.state != state)
                camera_set_state(state);
}

void camera_start_poll(void)
{
        if (camera_link.poll_timer == 0)
                camera_link.poll_timer = g_timeout_add(position_poll_ms, position_poll_tick, nullptr);
}

// One control tick at most, however often the link is resumed.
void camera_start_control_tick(void)
{
        if (camera_link.control_tick == 0)
                camera_link.control_tick = g_timeout_add(control_tick_ms, ptz_control_tick, nullptr);
}

void camera_connect(void)
{
        CameraConnection connection;
        if (!connection.ip || strlen(connection.ip) < shortest_camera_address) {
                if (camera_link.state != CAMERA_DISCONNECTED) {
                        camera_send_stop();
                        camera_set_state(CAMERA_DISCONNECTED);
                }
                http_cleanup();
                metadata_pipeline_stop();
                return;
        }
        camera_leave_for(CAMERA_DISCONNECTED);
        camera_set_state(CAMERA_CONNECTING);
        http_cleanup();
        http_setup(connection.ip, "80", "443", connection.user, connection.pass);
        camera_link.source = POSITION_UNPROBED;
        camera_start_poll();
}

// The stream when the camera offers it and its pipeline starts; polling otherwise.
void camera_choose_position_source(const char *properties)
{
        if (probe_offers_metadata_stream(properties)) {
                CameraConnection connection;
                if (metadata_pipeline_start(connection.ip, stream_port, stream_path, connection.user, connection.pass,
                                            parse_ptz_metadata, metadata_feed_stopped, nullptr) == 0) {
                        camera_link.source = POSITION_STREAM;
                        return;
                }
        }
        metadata_pipeline_stop();
        camera_link.source = POSITION_POLLING;
}

void camera_probe_zoom_limits(void)
{
        char *limits = nullptr;
        if (camera_query_parameters("Ptz.Limit.L1", &limits) == 200) {
                float min_angle = 0.0f, max_angle = 0.0f;
                probe_read_field_angles(limits, &min_angle, &max_angle);
                zoom_calibration_set_field_angles(min_angle, max_angle);
        }
        g_free(limits);
}

void camera_probe_model(void)
{
        char *brand = nullptr;
        char product[64];
        if (camera_query_parameters("Brand", &brand) == 200 && probe_read_product_number(brand, product)) {
                g_free(camera_link.product_number);
                camera_link.product_number = g_strdup(product);
                if (g_strcmp0(camera_link.product_number, camera_link.camera_name) != 0 &&
                    camera_link.state != CAMERA_AUTOTUNE)
                        camera_set_state(CAMERA_AUTOTUNE);
        }
        g_free(brand);
}

void camera_probe(void)
{
        char *properties = nullptr;
        if (camera_query_parameters("Properties", &properties) != 200)
                return; // still unprobed: the next poll tries again
        camera_choose_position_source(properties);
        g_free(properties);
        camera_probe_zoom_limits();
        camera_probe_model();
        if (camera_link.state != CAMERA_AUTOTUNE && camera_link.state != CAMERA_CONNECTED)
                camera_set_state(CAMERA_CONNECTED);
}

} // namespace

gboolean ptz_control_setup(void)
{
        camera_leave_for(CAMERA_DISCONNECTED);
        g_clear_pointer(&camera_link.camera_name, g_free);
        persistent_get_camera_name(&camera_link.camera_name);
        const gboolean enabled = persistent_get_tracking_enabled();
        tracking_set_enabled(enabled);
        radar_metadata_set_enabled(enabled);
        tracker_set_guard_tour_enabled(persistent_get_guard_tour_enabled());
        tracker_set_guard_tour_time(persistent_get_guard_tour_time());
        zoom_calibration_set_correction(static_cast<float>(persistent_get_zoom_correction()));
        camera_start_control_tick();
        return TRUE;
}

void ptz_control_teardown(void)
{
        if (camera_link.state != CAMERA_DISCONNECTED) {
                camera_send_stop();
                controller_stop();
                camera_set_state(CAMERA_DISCONNECTED);
        }
        http_cleanup();
        metadata_pipeline_stop();
        g_clear_handle_id(&camera_link.control_tick, g_source_remove);
        g_clear_handle_id(&camera_link.autotune_tick, g_source_remove);
        g_clear_handle_id(&camera_link.poll_timer, g_source_remove);
        g_clear_pointer(&camera_link.camera_name, g_free);
        g_clear_pointer(&camera_link.product_number, g_free);
        camera_link.source = POSITION_UNPROBED;
        camera_link.reconnect_requested = TRUE;
}

gboolean ptz_control_tick(gpointer)
{
        if (camera_link.reconnect_requested) {
                camera_link.reconnect_requested = FALSE;
                camera_connect();
        }
        if (camera_link.state == CAMERA_AUTOTUNE) {
                // The autotune takes over until it has finished, and then restarts this tick.
                // By source id, so that a tick called from elsewhere leaves no timer behind.
                autotune_begin();
                g_clear_handle_id(&camera_link.control_tick, g_source_remove);
                g_clear_handle_id(&camera_link.autotune_tick, g_source_remove);
                camera_link.autotune_tick = g_timeout_add(autotune_tick_ms, autotune_tick, nullptr);
                return FALSE;
        }
        tracker_refresh();
        if (camera_link.state == CAMERA_CONNECTED)
                camera_tracking_tick();
        return TRUE;
}

gboolean position_poll_tick(gpointer)
{
        PositionReply read;
        if (camera_query_position(&read) == 200 && camera_apply_position_reply(read)) {
                if (camera_link.source == POSITION_UNPROBED)
                        camera_probe();
                if (camera_link.source == POSITION_STREAM)
                        camera_link.poll_timer = 0;
        }
        camera_remember_poll(read);
        if (camera_link.state == CAMERA_CONNECTING)
                camera_set_state(CAMERA_CONNECT_FAILED);
        return camera_link.poll_timer != 0;
}

void metadata_feed_stopped(void *)
{
        if (camera_link.poll_timer != 0)
                return;
        camera_link.source = POSITION_UNPROBED;
        camera_leave_for(CAMERA_DISCONNECTED);
        camera_start_poll();
}

void camera_resume_control_tick(void)
{
        g_clear_handle_id(&camera_link.autotune_tick, g_source_remove);
        camera_start_control_tick();
}

const gchar *camera_product_number(void)
{
        return camera_link.product_number;
}

void camera_adopt_product_number(void)
{
        g_free(camera_link.camera_name);
        camera_link.camera_name = g_strdup(camera_link.product_number);
        persistent_set_camera_name(camera_link.camera_name);
}

CameraConnectionState camera_connection_state(void)
{
        return camera_link.state;
}

PositionSource camera_position_source(void)
{
        return camera_link.source;
}

void camera_set_state(CameraConnectionState state)
{
        camera_link.state = state;
        send_state_event(state_names[state]);
}

gboolean camera_is_connected(void)
{
        return camera_link.state == CAMERA_CONNECTED;
}

gchar *camera_get_connection_state(void)
{
        return g_strdup(state_names[camera_link.state]);
}

double camera_get_pan(void)
{
        return static_cast<double>(camera_position_get().pan);
}

double camera_get_tilt(void)
{
        return static_cast<double>(camera_position_get().tilt);
}

void camera_request_reconnect(void)
{
        camera_link.reconnect_requested = TRUE;
}
