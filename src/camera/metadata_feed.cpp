#include "metadata_feed.h"

#include "camera_position.h"
#include "log.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/rtp/gstrtpbuffer.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr const char *metadata_interface = "eth0";
// A number is read within this many bytes of its element's start; the rest of a longer
// text is not part of any number a camera sends.
constexpr size_t element_read_window = 255;

struct MetadataFeed {
        GstElement *pipeline;
        MetadataPayloadHandler on_payload;
        MetadataErrorHandler on_error;
};

MetadataFeed feed; // file-level, so it starts zeroed: only non-zero starts are written

// A bounded view of the payload: nothing here reads past its end.
struct PayloadView {
        const char *data;
        size_t length;

        // The first occurrence of text, or an empty view at the end.
        PayloadView find(const char *text) const
        {
                const void *at = length > 0 ? memmem(data, length, text, strlen(text)) : nullptr;
                if (!at)
                        return {data + length, 0};
                const auto offset = static_cast<size_t>(static_cast<const char *>(at) - data);
                return {data + offset, length - offset};
        }
        bool found() const { return length > 0; }
        bool starts_with(const char *text) const
        {
                const size_t n = strlen(text);
                return length >= n && memcmp(data, text, n) == 0;
        }
        // sscanf over at most the read window, NUL-terminated in a copy.
        template <typename... Args>
        int scan(const char *format, Args... args) const
        {
                char copy[element_read_window + 1];
                const size_t n = length < element_read_window ? length : element_read_window;
                memcpy(copy, data, n);
                copy[n] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
                return std::sscanf(copy, format, args...);
#pragma GCC diagnostic pop
        }
};

// MOVING 1, IDLE 0, anything else (or no element) -1.
int metadata_move_status(const PayloadView &move_status, const char *element, const char *moving,
                         const char *idle)
{
        const PayloadView at = move_status.find(element);
        if (!at.found())
                return camera_moving_not_reported;
        if (at.starts_with(moving))
                return 1;
        if (at.starts_with(idle))
                return 0;
        return camera_moving_not_reported;
}

void metadata_read_position(const PayloadView &position, float *pan, float *tilt, int *zoom)
{
        float x = 0.0f, y = 0.0f;
        const PayloadView pan_tilt = position.find("<tt:PanTilt");
        if (pan_tilt.found() && pan_tilt.scan("<tt:PanTilt x=\"%f\" y=\"%f\"", &x, &y) == 2 && std::isfinite(x) &&
            std::isfinite(y)) {
                *pan = x * 180.0f;
                *tilt = y * 180.0f;
        }
        const PayloadView zoom_element = position.find("<tt:Zoom");
        if (zoom_element.found() && zoom_element.scan("<tt:Zoom x=\"%f\"", &x) == 1) {
                const float scaled = x * 10000.0f + 0.001f;
                // Anything an int cannot hold is no zoom position.
                if (std::isfinite(scaled) && scaled > -2147483648.0f && scaled < 2147483648.0f)
                        *zoom = static_cast<int>(scaled);
        }
}

void metadata_release_pipeline(void)
{
        if (!feed.pipeline)
                return;
        GstBus *bus = gst_element_get_bus(feed.pipeline);
        gst_bus_remove_signal_watch(bus);
        gst_object_unref(bus);
        gst_element_set_state(feed.pipeline, GST_STATE_NULL);
        g_clear_pointer(&feed.pipeline, gst_object_unref);
}

void on_pad_added(GstElement *, GstPad *pad, gpointer data)
{
        GstPad *sink_pad = gst_element_get_static_pad(GST_ELEMENT(data), "sink");
        if (!gst_pad_is_linked(sink_pad)) {
                GstCaps *caps = gst_pad_query_caps(pad, nullptr);
                const GstStructure *first = caps ? gst_caps_get_structure(caps, 0) : nullptr;
                if (first && g_str_equal(gst_structure_get_name(first), "application/x-rtp")) {
                        const GstPadLinkReturn linked = gst_pad_link(pad, sink_pad);
                        if (linked < 0)
                                log_error("%sFailed to link rtp pad with sink (%i)", static_cast<int>(linked));
                }
                if (caps)
                        gst_caps_unref(caps);
        }
        gst_object_unref(sink_pad);
}

GstFlowReturn on_new_sample(GstElement *sink, gpointer user_data)
{
        GstSample *sample = nullptr;
        g_signal_emit_by_name(sink, "pull-sample", &sample);
        if (!sample)
                return GST_FLOW_OK;
        GstRTPBuffer rtp = GST_RTP_BUFFER_INIT;
        if (gst_rtp_buffer_map(gst_sample_get_buffer(sample), GST_MAP_READ, &rtp)) {
                const guint length = gst_rtp_buffer_get_payload_len(&rtp);
                if (length > 0)
                        feed.on_payload(static_cast<const uint8_t *>(gst_rtp_buffer_get_payload(&rtp)), length,
                                        user_data);
                gst_rtp_buffer_unmap(&rtp);
        }
        gst_sample_unref(sample);
        return GST_FLOW_OK;
}

void metadata_report(GstMessage *message, GError *error, gpointer user_data)
{
        log_error("%s%s: %s", GST_OBJECT_NAME(GST_MESSAGE_SRC(message)), error->message);
        // A read error is the stream gone; anything else only stalls it, if that.
        if (error->domain == GST_RESOURCE_ERROR && error->code == GST_RESOURCE_ERROR_READ)
                feed.on_error(user_data);
        g_error_free(error);
}

void on_bus_error(GstBus *, GstMessage *message, gpointer user_data)
{
        GError *error = nullptr;
        gchar *debug = nullptr;
        gst_message_parse_error(message, &error, &debug);
        g_free(debug);
        metadata_report(message, error, user_data);
}

void on_bus_warning(GstBus *, GstMessage *message, gpointer user_data)
{
        GError *error = nullptr;
        gchar *debug = nullptr;
        gst_message_parse_warning(message, &error, &debug);
        g_free(debug);
        metadata_report(message, error, user_data);
}

} // namespace

gchar *metadata_rtsp_url(const char *address, const char *port, const char *path)
{
        if (!strchr(address, ':'))
                return g_strdup_printf("rtsp://%s:%s/%s", address, port ? port : "", path);
        // A link-local address means nothing without the interface it is reached through.
        gchar *host = g_str_has_prefix(address, "fe80:") ? g_strdup_printf("%s%%%s", address, metadata_interface)
                                                          : g_strdup(address);
        gchar *url = g_strdup_printf("rtsp://[%s]:%s/%s", host, port ? port : "", path);
        g_free(host);
        return url;
}

GstElement *make_rtsp_source(const char *address, const char *port, const char *path, const char *user,
                             const char *password, int latency)
{
        GstElement *source = gst_element_factory_make("rtspsrc", nullptr);
        if (!source)
                return nullptr;
        gchar *url = metadata_rtsp_url(address, port, path);
        // Protocols 4: RTP interleaved in the RTSP connection, one TCP stream to the camera.
        g_object_set(source, "location", url, "user-id", user, "user-pw", password, "latency", latency, "protocols",
                     4, nullptr);
        g_free(url);
        return source;
}

int metadata_pipeline_start(const char *address, const char *port, const char *path, const char *user,
                            const char *password, MetadataPayloadHandler on_payload, MetadataErrorHandler on_error,
                            void *user_data)
{
        if (feed.pipeline)
                metadata_release_pipeline();
        else
                gst_init(nullptr, nullptr);

        GstElement *pipeline = gst_pipeline_new("metadata-pipeline");
        GstElement *source = make_rtsp_source(address, port, path, user, password, 0);
        GstElement *sink = gst_element_factory_make("appsink", nullptr);
        if (!source || !sink) {
                log_error("%sFailed to create metadata pipeline elements");
                for (GstElement *element : {source, sink, pipeline})
                        if (element)
                                gst_object_unref(element);
                return -1;
        }
        feed.on_payload = on_payload;
        feed.on_error = on_error;
        g_signal_connect(source, "pad-added", G_CALLBACK(on_pad_added), sink);
        g_object_set(sink, "emit-signals", TRUE, nullptr);
        g_signal_connect(sink, "new-sample", G_CALLBACK(on_new_sample), user_data);
        gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);

        GstBus *bus = gst_element_get_bus(pipeline);
        gst_bus_add_signal_watch(bus);
        g_signal_connect(bus, "message::error", G_CALLBACK(on_bus_error), user_data);
        g_signal_connect(bus, "message::warning", G_CALLBACK(on_bus_warning), user_data);
        gst_object_unref(bus);

        feed.pipeline = pipeline;
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        return 0;
}

void metadata_pipeline_stop(void)
{
        metadata_release_pipeline();
}

GstElement *metadata_pipeline_current(void)
{
        return feed.pipeline;
}

void parse_ptz_metadata(const uint8_t *payload, uint32_t length, void *)
{
        const PayloadView whole{reinterpret_cast<const char *>(payload), length};
        float pan = camera_angle_not_reported, tilt = camera_angle_not_reported;
        int zoom = camera_zoom_not_reported;
        PayloadView region = whole.find("<tt:Position>");
        if (region.found())
                metadata_read_position(region, &pan, &tilt, &zoom);
        else
                region = whole;

        int pan_tilt_status = camera_moving_not_reported, zoom_status = camera_moving_not_reported;
        const PayloadView move_status = region.find("<tt:MoveStatus>");
        if (move_status.found()) {
                pan_tilt_status =
                        metadata_move_status(move_status, "<tt:PanTilt", "<tt:PanTilt>MOVING", "<tt:PanTilt>IDLE");
                zoom_status = metadata_move_status(move_status, "<tt:Zoom", "<tt:Zoom>MOVING", "<tt:Zoom>IDLE");
        }
        camera_position_update(zoom, pan_tilt_status, pan_tilt_status, zoom_status, pan, tilt);
}
