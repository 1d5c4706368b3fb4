// Readers of the camera's text replies: the HTTP position reply and the three parameter
// lists of the probe. Pure functions over NUL-terminated text, so that any reply, however
// broken, can be thrown at them.
#pragma once

#include "camera_position.h"

#include <cstdint>

struct PositionReply {
        float pan = camera_angle_not_reported;
        float tilt = camera_angle_not_reported;
        int32_t zoom = camera_zoom_not_reported;
};

// Reads "pan=", "tilt=" and "zoom=" (each the first occurrence); a value that is missing,
// does not read or is not finite stays "not read". True when any of the three was read.
bool camera_parse_position_reply(const char *reply, PositionReply *out);

// Whether the properties list offers the PTZ metadata stream: metadata "yes" and a
// firmware of at least 5.55.1.3, or of the cvp/cfp lines.
bool probe_offers_metadata_stream(const char *properties);
// The zoom limits in degrees (the list gives tenths); each NAN when it does not read.
void probe_read_field_angles(const char *limits, float *min_field_angle, float *max_field_angle);
// The product number, a token of at most 63 characters; false when it does not read.
bool probe_read_product_number(const char *brand, char product[64]);
