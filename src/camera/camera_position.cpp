#include "camera_position.h"

#include "gmutex_tsan.h"

#include <cmath>

namespace {

struct PositionRecord {
        CameraPosition position;
        ZoomCalibration calibration;
};

PositionRecord record;
GMutex record_mutex;

bool camera_position_reported(float angle)
{
        return angle != camera_angle_not_reported && std::isfinite(angle);
}

void camera_position_take_flag(int *stored, int reported)
{
        if (reported == 0 || reported == 1)
                *stored = reported;
}

// Under the lock.
float camera_position_magnification(int zoom_position)
{
        const ZoomCalibration &c = record.calibration;
        // In 64 bits: a camera may report the lowest int as its zoom.
        return ((c.max_field_angle / c.min_field_angle - 1.0f) * static_cast<float>(int64_t{zoom_position} - 1) *
                c.zoom_correction) / 9999.0f +
               1.0f;
}

bool camera_position_usable_angle(float degrees)
{
        return std::isfinite(degrees) && degrees > 0.0f;
}

} // namespace

void camera_position_update(int zoom_position, int pan_moving, int tilt_moving, int zoom_moving, float pan,
                            float tilt)
{
        gmutex_tsan_lock(&record_mutex);
        CameraPosition &p = record.position;
        if (camera_position_reported(pan))
                p.pan = pan;
        if (camera_position_reported(tilt))
                p.tilt = tilt;
        if (zoom_position != camera_zoom_not_reported) {
                p.zoom_position = zoom_position;
                p.magnification = camera_position_magnification(zoom_position);
        }
        camera_position_take_flag(&p.pan_moving, pan_moving);
        camera_position_take_flag(&p.tilt_moving, tilt_moving);
        camera_position_take_flag(&p.zoom_moving, zoom_moving);
        p.moving = (p.pan_moving == 1 || p.tilt_moving == 1 || p.zoom_moving == 1) ? 1 : 0;
        gmutex_tsan_unlock(&record_mutex);
}

CameraPosition camera_position_get(void)
{
        gmutex_tsan_lock(&record_mutex);
        const CameraPosition copy = record.position;
        gmutex_tsan_unlock(&record_mutex);
        return copy;
}

float zoom_magnification(int zoom_position)
{
        gmutex_tsan_lock(&record_mutex);
        const float m = camera_position_magnification(zoom_position);
        gmutex_tsan_unlock(&record_mutex);
        return m;
}

ZoomCalibration zoom_calibration_get(void)
{
        gmutex_tsan_lock(&record_mutex);
        const ZoomCalibration copy = record.calibration;
        gmutex_tsan_unlock(&record_mutex);
        return copy;
}

void zoom_calibration_set_field_angles(float min_field_angle, float max_field_angle)
{
        gmutex_tsan_lock(&record_mutex);
        if (camera_position_usable_angle(min_field_angle))
                record.calibration.min_field_angle = min_field_angle;
        if (camera_position_usable_angle(max_field_angle))
                record.calibration.max_field_angle = max_field_angle;
        gmutex_tsan_unlock(&record_mutex);
}

void zoom_calibration_set_correction(float correction)
{
        if (!std::isfinite(correction) || correction <= 0.0f)
                return;
        gmutex_tsan_lock(&record_mutex);
        record.calibration.zoom_correction = correction;
        gmutex_tsan_unlock(&record_mutex);
}
