// Where an object on the ground shows up in a scene. Ground coordinates are metres with
// the radar at the origin facing +y, x to the right.
#pragma once

struct ScenePosition {
        double range;       // distance from the radar, metres: position.x
        double azimuth;     // degrees from +y, positive to the right: position.y
        double plane_x;     // x / max_range: bounding_box.left
        double plane_y;     // y / max_range: bounding_box.top
};

// The one mapping from the ground to the scene's fields. Objects beyond max_range land
// outside the normalised square, where the service counts them as excluded.
ScenePosition scene_position_from_ground(double x, double y, double max_range);
