// Conversions between radar positions and camera angles, and circular-angle helpers.
// Angles in degrees.
#pragma once

// Azimuth and distance of a radar object to camera pan, tilt (tilt offset included) and
// the angular width of a 5-unit extent. Reads the mounting height and tilt offset.
void radar_to_camera(float azimuth, float distance, float *pan, float *tilt, float *width);
