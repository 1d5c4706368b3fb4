#include "geometry.h"

#include "settings.h"
#include "tracking_math.h"

#include <algorithm>
#include <cmath>

namespace {

// The camera aims at a point this far above the ground.
constexpr double geometry_aim_height = 1.0;
// The camera never looks down more steeply than atan(1 / 1.4).
constexpr float geometry_steepness_limit = 1.4f;
// Objects are framed as if they were this wide.
constexpr float geometry_half_extent = 2.5f;

} // namespace

void radar_to_camera(float azimuth, float distance, float *pan, float *tilt, float *width)
{
        const float alpha = tracking_clamp(azimuth, -90.0f, 90.0f);
        float d = tracking_clamp(distance, 3.0f, 90.0f);
        const auto h = static_cast<float>(settings_get_mounting_height() - geometry_aim_height);
        if (geometry_steepness_limit * h > d)
                d = geometry_steepness_limit * h;

        const double down = static_cast<double>(std::atan(h / d) * 180.0f) / tracking_pi;
        *tilt = static_cast<float>(-down + settings_get_tilt_offset());
        *width = static_cast<float>(
                static_cast<double>(2.0f * std::atan(geometry_half_extent / d) * 180.0f) / tracking_pi);
        *pan = alpha;
}

void set_point_from_group(float group_pan, float group_tilt, float group_width, float max_field_angle,
                          float *pan, float *tilt, float *zoom)
{
        const float factor = std::clamp(max_field_angle / group_width, 1.0f, 12.0f);
        *pan = normalize_angle(static_cast<float>(static_cast<double>(group_pan) + settings_get_pan_offset()));
        *zoom = static_cast<float>(settings_get_zoom_degree() / 100.0 * static_cast<double>(factor));
        *tilt = group_tilt;
}

float normalize_angle(float a)
{
        if (!std::isfinite(a))
                return 0.0f;
        a = std::fmod(a, 360.0f);
        if (a < 0.0f)
                a += 360.0f;
        // A tiny negative angle rounds up to 360 itself.
        return a < 360.0f ? a : 0.0f;
}

float angle_difference(float a, float b)
{
        float d = a - b;
        if (d < -180.0f)
                d += 360.0f;
        if (d > 180.0f)
                d -= 360.0f;
        return d;
}

float angle_midpoint(float a, float b)
{
        const float lo = std::min(a, b);
        float hi = std::max(a, b);
        if (hi - lo > 180.0f)
                hi -= 360.0f;
        float m = (lo + hi) * 0.5f;
        if (m < 0.0f)
                m += 360.0f;
        return m;
}

float forward_arc(float a, float b)
{
        float r = normalize_angle(b) - normalize_angle(a);
        if (r < 0.0f)
                r += 360.0f;
        return r;
}

void circular_span(float *angles, size_t count, float *start, float *end)
{
        if (count == 1) {
                *start = angles[0];
                *end = angles[0];
                return;
        }
        std::sort(angles, angles + count);
        float best = 0.0f;
        for (size_t i = 0; i < count; i++) {
                const float a = angles[i];
                const float b = i + 1 < count ? angles[i + 1] : angles[0];
                const float gap = std::fabs(forward_arc(a, b));
                if (gap > best) {
                        best = gap;
                        *start = b;
                        *end = a;
                }
        }
}

float angular_distance(float pan1, float tilt1, float pan2, float tilt2)
{
        float dp = std::fabs(pan2 - pan1);
        if (dp > 180.0f)
                dp = 360.0f - dp;
        constexpr float to_radians = 0.017453292f;
        const auto t1 = static_cast<double>(tilt1 * to_radians);
        const auto t2 = static_cast<double>(tilt2 * to_radians);
        const auto p = static_cast<double>(dp * to_radians);
        double c = std::sin(t1) * std::sin(t2) + std::cos(t1) * std::cos(t2) * std::cos(p);
        // Rounding can put the cosine a hair outside acos's domain for (near) equal directions.
        c = std::clamp(c, -1.0, 1.0);
        return static_cast<float>(std::acos(c) * 57.295780181884766);
}
