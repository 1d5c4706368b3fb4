// The simulated camera's RTSP metadata stream: RTP over the RTSP connection, one ONVIF
// PTZ status fragment per packet at 10 Hz from the camera's own state, behind the same
// credentials as the HTTP API. Refused (404) while the firmware does not offer it; the
// stream_drop fault closes the connections of clients that are streaming.
#pragma once

#include "camera_api.h"
#include "sim_camera.h"

#include <gio/gio.h>

#include <cstdint>

// Where the service asks for it (the query that follows is accepted and ignored).
constexpr char simcam_rtsp_path[] = "/zelk-media/media.amp";

bool simcam_rtsp_setup(SimCamera *camera, const CameraApiConfig &config, uint16_t port, GError **error);
void simcam_rtsp_teardown(void);
// Applies changed credentials, authentication schemes and faults.
void simcam_rtsp_refresh(void);

// RTSP connections open now, and metadata packets handed to the stream since start.
uint64_t simcam_rtsp_clients(void);
uint64_t simcam_rtsp_packets(void);
