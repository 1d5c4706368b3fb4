#include "view_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

using Polygon = std::vector<std::pair<double, double>>;

// The crossing-number rule the service uses: half-open edges, strict crossing test.
bool view_ring_contains(const Polygon &ring, double x, double y)
{
        bool inside = false;
        for (size_t i = 0; i < ring.size(); i++) {
                const auto [xi, yi] = ring[i];
                const auto [xj, yj] = ring[(i + 1) % ring.size()];
                if ((yi <= y && y < yj) || (yj <= y && y < yi)) {
                        if (x < xi + (y - yi) / ((yj - yi) / (xj - xi)))
                                inside = !inside;
                }
        }
        return inside;
}

bool view_is_exclusion(const SimArea &area)
{
        return area.enabled && area.kind == "excludeArea";
}

// Whether the zone has exclusion areas at all, and whether one of them holds the point.
std::pair<bool, bool> view_zone_holds(const SimZone &zone, double x, double y)
{
        bool has_areas = false;
        for (const SimArea &area : zone.areas) {
                if (!view_is_exclusion(area))
                        continue;
                has_areas = true;
                if (area.polygon.size() >= 3 && view_ring_contains(area.polygon, x, y))
                        return {true, true};
        }
        return {has_areas, false};
}

const std::string &view_class_name(const ViewModel &model, uint32_t class_index)
{
        static const std::string unnamed;
        return class_index < model.classes.size() ? model.classes[class_index] : unnamed;
}

bool view_past_grace(const ViewModel &model, const ViewObject &object, int64_t now_us)
{
        const auto seen = model.first_seen_us.find(object.id);
        return seen != model.first_seen_us.end() && now_us - seen->second >= view_grace_us;
}

void view_account(ViewModel *model, int64_t now_us)
{
        // A gap longer than this (the view stalled, the camera was away) is not counted.
        constexpr int64_t longest_step_us = 500000;
        const int64_t step_us = model->accounted_us < 0 ? 0 : now_us - model->accounted_us;
        model->accounted_us = now_us;
        if (step_us <= 0 || step_us > longest_step_us || !model->camera.reachable)
                return;
        const double step_s = static_cast<double>(step_us) / 1e6;
        int counted = 0, in_view = 0;
        for (const ViewObject &object : model->objects) {
                if (!view_followed(*model, object) || !view_past_grace(*model, object, now_us))
                        continue;
                counted++;
                in_view += view_in_view(*model, object);
        }
        if (counted == 0)
                return;
        model->counted_s += step_s;
        model->in_view_s += in_view > 0 ? step_s : 0.0;
        model->object_counted_s += step_s * counted;
        model->object_in_view_s += step_s * in_view;
}

void view_forget_old_moves(ViewModel *model, int64_t now_us)
{
        while (!model->recent_moves_us.empty() && model->recent_moves_us.front() <= now_us - 1000000)
                model->recent_moves_us.pop_front();
}

json_t *view_share(double part, double whole)
{
        return whole > 0.0 ? json_real(part / whole) : json_null();
}

json_t *view_seconds_between(int64_t from_us, int64_t to_us)
{
        return from_us >= 0 && to_us >= 0 ? json_real(static_cast<double>(to_us - from_us) / 1e6) : json_null();
}

json_t *view_objects_json(const ViewModel &model)
{
        json_t *list = json_array();
        for (const ViewObject &o : model.objects) {
                const double radians = o.azimuth * M_PI / 180.0;
                json_array_append_new(
                        list, json_pack("{s:I,s:s,s:f,s:f,s:f,s:f,s:b,s:b}", "id", static_cast<json_int_t>(o.id), "class",
                                        view_class_name(model, o.class_index).c_str(), "range", o.range, "azimuth",
                                        o.azimuth, "x", o.range * std::sin(radians), "y", o.range * std::cos(radians),
                                        "followed", view_followed(model, o), "in_view", view_in_view(model, o)));
        }
        return list;
}

// Exclusion areas in metres on the ground, as the page draws them.
json_t *view_zones_json(const ViewModel &model)
{
        json_t *list = json_array();
        for (const SimZone &zone : model.zones) {
                for (const SimArea &area : zone.areas) {
                        json_t *polygon = json_array();
                        for (const auto &[x, y] : area.polygon)
                                json_array_append_new(polygon, json_pack("[f,f]", x * model.max_range, y * model.max_range));
                        json_array_append_new(list, json_pack("{s:i,s:s,s:s,s:b,s:o}", "zone", zone.id, "name", area.name.c_str(),
                                                              "kind", area.kind.c_str(), "enabled", area.enabled,
                                                              "polygon", polygon));
                }
        }
        return list;
}

json_t *view_camera_json(const ViewModel &model)
{
        const ViewCamera &c = model.camera;
        return json_pack("{s:b,s:f,s:f,s:f,s:f,s:f,s:b,s:I,s:I,s:I}", "reachable", c.reachable, "pan", c.pan, "tilt",
                         c.tilt, "zoom", c.zoom, "field_angle", view_field_angle(c), "pan_offset", model.pan_offset,
                         "moving", c.moving, "connections", static_cast<json_int_t>(c.connections), "requests",
                         static_cast<json_int_t>(c.requests), "rtsp_clients", static_cast<json_int_t>(c.rtsp_clients));
}

json_t *view_service_json(const ViewModel &model, int64_t now_us)
{
        json_t *events = json_array();
        for (const ViewEvent &e : model.events)
                json_array_append_new(events, json_pack("{s:f,s:s,s:s?,s:b}", "age_s",
                                                        static_cast<double>(now_us - e.at_us) / 1e6, "method",
                                                        e.method.c_str(), "state", e.state.empty() ? nullptr : e.state.c_str(),
                                                        "failed", e.failed));
        return json_pack("{s:s?,s:o}", "state", model.state.empty() ? nullptr : model.state.c_str(), "events", events);
}

json_t *view_figures_json(const ViewModel &model)
{
        int64_t since_us;
        const int64_t first_move_us = view_first_move_us(model, &since_us);
        return json_pack("{s:I,s:I,s:o,s:o,s:f,s:o,s:o}", "moves", static_cast<json_int_t>(model.moves_us.size()),
                         "moves_per_s",
                         static_cast<json_int_t>(model.recent_moves_us.size()), "in_view_share",
                         view_share(model.in_view_s, model.counted_s), "object_in_view_share",
                         view_share(model.object_in_view_s, model.object_counted_s), "counted_s", model.counted_s,
                         "first_move_s", view_seconds_between(since_us, first_move_us),
                         "first_object_s", view_seconds_between(model.start_us, model.first_followed_us));
}

} // namespace

double view_field_angle(const ViewCamera &camera)
{
        const double widest = camera.max_field_angle / 10.0;
        const double longest = camera.min_field_angle / 10.0;
        const double magnification = (widest / longest - 1.0) * (camera.zoom - 1.0) / 9999.0 + 1.0;
        return widest / magnification;
}

double view_angle_difference(double a, double b)
{
        const double d = std::fmod(a - b + 180.0, 360.0);
        return d < 0.0 ? d + 180.0 : d - 180.0;
}

bool view_excluded(const std::vector<SimZone> &zones, double x, double y)
{
        if (x > 1.0 || y > 1.0 || x < -1.0 || y < -1.0)
                return true;
        bool any_zone = false;
        for (const SimZone &zone : zones) {
                const auto [has_areas, holds] = view_zone_holds(zone, x, y);
                if (has_areas && !holds)
                        return false;
                any_zone |= has_areas;
        }
        return any_zone;
}

bool view_followed(const ViewModel &model, const ViewObject &object)
{
        return model.followed_classes.count(view_class_name(model, object.class_index)) > 0 &&
               !view_excluded(model.zones, object.plane_x, object.plane_y);
}

bool view_in_view(const ViewModel &model, const ViewObject &object)
{
        const double off_axis = view_angle_difference(object.azimuth + model.pan_offset, model.camera.pan);
        return model.camera.reachable && std::fabs(off_axis) <= view_field_angle(model.camera) / 2.0;
}

void view_take_scene(ViewModel *model, std::vector<ViewObject> objects, int64_t now_us)
{
        model->scenes++;
        model->objects = std::move(objects);
        for (const ViewObject &object : model->objects) {
                model->first_seen_us.try_emplace(object.id, now_us);
                if (model->first_followed_us < 0 && view_followed(*model, object))
                        model->first_followed_us = now_us;
        }
}

void view_lose_radar(ViewModel *model)
{
        model->radar_connected = false;
        model->objects.clear();
}

void view_take_camera(ViewModel *model, const ViewCamera &camera, int64_t now_us)
{
        view_account(model, now_us);
        model->camera = camera;
}

void view_take_moves(ViewModel *model, const std::vector<int64_t> &moves_us, int64_t now_us)
{
        model->moves_us.insert(model->moves_us.end(), moves_us.begin(), moves_us.end());
        model->recent_moves_us.insert(model->recent_moves_us.end(), moves_us.begin(), moves_us.end());
        view_forget_old_moves(model, now_us);
}

int64_t view_first_move_us(const ViewModel &model, int64_t *since_us)
{
        *since_us = -1;
        if (model.first_followed_us < 0 || model.connected_us < 0)
                return -1;
        *since_us = std::max(model.first_followed_us, model.connected_us);
        const auto move = std::lower_bound(model.moves_us.begin(), model.moves_us.end(), *since_us);
        return move == model.moves_us.end() ? -1 : *move;
}

void view_take_event(ViewModel *model, const ViewEvent &event)
{
        if (event.method == "SendEvent" && !event.failed && !event.state.empty())
                model->state = event.state;
        if (model->state == "connected" && model->connected_us < 0)
                model->connected_us = event.sent_us >= 0 ? event.sent_us : event.at_us;
        model->events.push_back(event);
        while (model->events.size() > view_event_count)
                model->events.pop_front();
}

json_t *view_status(const ViewModel &model, int64_t now_us)
{
        json_t *classes = json_array();
        for (const std::string &name : model.classes)
                json_array_append_new(classes, json_string(name.c_str()));
        json_t *followed = json_array();
        for (const std::string &name : model.followed_classes)
                json_array_append_new(followed, json_string(name.c_str()));
        return json_pack("{s:f,s:{s:b,s:o,s:o,s:I,s:f},s:o,s:o,s:o,s:o,s:o}", "time_s",
                         static_cast<double>(now_us - model.start_us) / 1e6, "radar", "connected", model.radar_connected,
                         "classes", classes, "followed_classes", followed, "scenes",
                         static_cast<json_int_t>(model.scenes), "max_range", model.max_range, "objects",
                         view_objects_json(model), "zones", view_zones_json(model), "camera", view_camera_json(model),
                         "service", view_service_json(model, now_us), "figures", view_figures_json(model));
}
