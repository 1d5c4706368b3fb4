#include "scenario_scene.h"

#include "scene_mapping.h"

#include <glib.h>

#include <cmath>

namespace {

double scenario_leg_length(const GroundPoint &a, const GroundPoint &b)
{
        return std::hypot(b.x - a.x, b.y - a.y);
}

// The path as legs between consecutive waypoints; a looping path closes back to the start.
std::vector<std::pair<GroundPoint, GroundPoint>> scenario_legs(const ScenarioObject &object)
{
        std::vector<std::pair<GroundPoint, GroundPoint>> legs;
        const std::vector<GroundPoint> &w = object.waypoints;
        for (size_t i = 0; i + 1 < w.size(); i++)
                legs.emplace_back(w[i], w[i + 1]);
        if (object.loop && w.size() > 1)
                legs.emplace_back(w.back(), w.front());
        return legs;
}

void scenario_add_object(Scene &scene, const ScenarioObject &object, const ScenePosition &at)
{
        Object *out = scene.add_objects();
        out->set_id(object.id);
        out->mutable_labels()->add_labels()->set_id(object.class_index);
        BoundingBox *box = out->mutable_bounding_box();
        box->set_left(static_cast<float>(at.plane_x));
        box->set_top(static_cast<float>(at.plane_y));
        box->set_right(static_cast<float>(at.plane_x));
        box->set_bottom(static_cast<float>(at.plane_y));
        Point *position = out->mutable_position();
        position->set_x(static_cast<float>(at.range));
        position->set_y(static_cast<float>(at.azimuth));
}

} // namespace

bool scenario_object_position(const ScenarioObject &object, double t, GroundPoint *position)
{
        const auto legs = scenario_legs(object);
        double total = 0.0;
        for (const auto &[a, b] : legs)
                total += scenario_leg_length(a, b);
        double travelled = object.speed * t;
        if (legs.empty() || total <= 0.0) {
                *position = object.waypoints.front();
                return true;
        }
        if (object.loop)
                travelled = std::fmod(travelled, total);
        else if (travelled > total)
                return false;
        for (const auto &[a, b] : legs) {
                const double length = scenario_leg_length(a, b);
                if (travelled <= length && length > 0.0) {
                        const double f = travelled / length;
                        *position = {a.x + f * (b.x - a.x), a.y + f * (b.y - a.y)};
                        return true;
                }
                travelled -= length;
        }
        *position = legs.back().second;
        return true;
}

Scene scenario_scene(const Scenario &scenario, uint64_t n)
{
        const double t = static_cast<double>(n) / scenario.rate_hz;
        Scene scene;
        scene.set_time(static_cast<uint64_t>(std::llround(t * 1e6)));
        scene.set_real_time(static_cast<uint64_t>(g_get_real_time()));
        for (const ScenarioObject &object : scenario.objects) {
                GroundPoint ground;
                if (t >= object.start_s && scenario_object_position(object, t - object.start_s, &ground))
                        scenario_add_object(scene, object, scene_position_from_ground(ground.x, ground.y,
                                                                                       scenario.max_range));
        }
        return scene;
}
