// The camera's position over its RTSP metadata stream: ONVIF PTZ status in RTP, received
// with a GStreamer pipeline. The handlers run on GStreamer's threads (payloads) and on
// the main loop (errors).
#pragma once

#include <glib.h>

#include <cstdint>

typedef struct _GstElement GstElement;

using MetadataPayloadHandler = void (*)(const uint8_t *payload, uint32_t length, void *user_data);
using MetadataErrorHandler = void (*)(void *user_data);

// Replaces any running pipeline with a new one for rtsp://address:port/path. 0 when it
// was built and set playing, -1 when it could not be built.
int metadata_pipeline_start(const char *address, const char *port, const char *path, const char *user,
                            const char *password, MetadataPayloadHandler on_payload, MetadataErrorHandler on_error,
                            void *user_data);
// Stops and releases the pipeline, if any.
void metadata_pipeline_stop(void);

// The pipeline's stream URL: IPv6 in brackets, a link-local address with eth0 as its zone.
gchar *metadata_rtsp_url(const char *address, const char *port, const char *path);
// A new rtspsrc for that URL and credentials, RTP interleaved over RTSP; NULL when the
// element is not available.
GstElement *make_rtsp_source(const char *address, const char *port, const char *path, const char *user,
                             const char *password, int latency);
// The running pipeline, for tests.
GstElement *metadata_pipeline_current(void);

// Reads one ONVIF PTZ status payload (not NUL-terminated) into the camera position.
void parse_ptz_metadata(const uint8_t *payload, uint32_t length, void *user_data);
