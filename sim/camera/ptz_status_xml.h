// The payload of one metadata packet: the camera's PTZ status as ONVIF metadata XML.
#pragma once

#include "sim_camera.h"

#include <glib.h>

#include <string>

// Position normalised as ONVIF's generic spaces have it (pan and tilt divided by 180,
// zoom as reported divided by 10000), the move status per pan-tilt and zoom, and the
// time of the report.
std::string simcam_ptz_status_xml(const SimCamera &camera, GDateTime *utc);
