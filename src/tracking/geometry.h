// Conversions between radar positions and camera angles, and circular-angle helpers.
// Angles in degrees.
#pragma once

#include <cstddef>

// Azimuth and distance of a radar object to camera pan, tilt (tilt offset included) and
// the angular width of a 5-unit extent. Reads the mounting height and tilt offset.
void radar_to_camera(float azimuth, float distance, float *pan, float *tilt, float *width);

// A followed group's centre and width to the controller's pan, tilt and zoom set point.
// Reads the pan offset and the zoom degree.
void set_point_from_group(float group_pan, float group_tilt, float group_width, float max_field_angle,
                          float *pan, float *tilt, float *zoom);

// a brought into [0, 360).
float normalize_angle(float a);
// a - b, wrapped once each way into [-180, 180].
float angle_difference(float a, float b);
// Midpoint of the shorter arc between a and b, in [0, 360).
float angle_midpoint(float a, float b);
// Arc from a upwards to b, in [0, 360).
float forward_arc(float a, float b);
// Start and end of the smallest arc covering every angle (the complement of the largest gap
// between neighbours). Leaves the outputs alone for an empty list or when all angles are equal;
// a single angle gives start = end = that angle. Sorts the angles in place: every caller
// hands over a list of its own, so the hot path neither copies nor allocates.
void circular_span(float *angles, size_t count, float *start, float *end);
// Great-circle angle between two directions (pan, tilt), degrees.
float angular_distance(float pan1, float tilt1, float pan2, float tilt2);
