#include "scene_mapping.h"

#include <cmath>
#include <numbers>

ScenePosition scene_position_from_ground(double x, double y, double max_range)
{
        return {
                .range = std::hypot(x, y),
                .azimuth = std::atan2(x, y) * 180.0 / std::numbers::pi,
                .plane_x = x / max_range,
                .plane_y = y / max_range,
        };
}
