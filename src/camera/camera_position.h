// The camera's last reported position and its zoom calibration. Reports arrive from the
// HTTP poll on the main loop and from the metadata stream on a GStreamer thread, while
// the control tick and the autotune read on the main loop: one lock guards both records,
// and readers take a copy.
#pragma once

#include <cstdint>

struct CameraPosition {
        float pan = 0.0f;  // degrees
        float tilt = 0.0f; // degrees, negative downwards
        int32_t zoom_position = 1; // the camera's 1..9999 zoom scale
        float magnification = 1.0f;
        int pan_moving = 0;
        int tilt_moving = 0;
        int zoom_moving = 0;
        int moving = 0; // any of the three
};

struct ZoomCalibration {
        float max_field_angle = 62.9f; // degrees, fully zoomed out
        float min_field_angle = 2.2f;  // degrees, fully zoomed in
        float zoom_correction = 1.0f;  // 2.0 for cameras that report zoom at half scale
};

// "Not reported" markers of a position report.
inline constexpr float camera_angle_not_reported = -360.0f;
inline constexpr int32_t camera_zoom_not_reported = 0;
inline constexpr int camera_moving_not_reported = -1;

// Applies one report: a pan or tilt of -360 (or not finite) and a zoom of 0 are not
// reported; a moving flag other than 0 or 1 keeps the stored one. Any thread.
void camera_position_update(int zoom_position, int pan_moving, int tilt_moving, int zoom_moving, float pan,
                            float tilt);
CameraPosition camera_position_get(void);

// Zoom position to optical magnification with the current calibration.
float zoom_magnification(int zoom_position);

ZoomCalibration zoom_calibration_get(void);
// Field angles in degrees, as the camera's limits give them (NAN: not read). Like the
// correction, each is taken only when it is a positive finite number: anything else
// (a broken camera or file) would turn every magnification into NaN or infinity.
void zoom_calibration_set_field_angles(float min_field_angle, float max_field_angle);
void zoom_calibration_set_correction(float correction);
