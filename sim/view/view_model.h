// What the live view knows about the simulated unit and the figures it derives from it:
// the radar's objects, the exclusion areas, where the camera looks and how wide, the
// service's connection state and events, the moves per second and the in-view share.
// Plain data and computations; the scene, camera and event readers feed it.
#pragma once

#include "zone_scenario.h"

#include <jansson.h>

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

struct ViewObject {
        uint32_t id = 0;
        uint32_t class_index = 0;
        double range = 0.0;   // metres from the radar
        double azimuth = 0.0; // degrees from straight ahead, positive to the right
        double plane_x = 0.0; // the normalised plane point the service tests against the zones
        double plane_y = 0.0;
};

struct ViewCamera {
        bool reachable = false;
        double pan = 0.0; // degrees
        double tilt = 0.0;
        double zoom = 1.0;              // zoom position, 1 to 9999
        int min_field_angle = 22;       // tenths of a degree, at the longest zoom
        int max_field_angle = 629;      // tenths of a degree, at the widest zoom
        bool moving = false;
        uint64_t connections = 0; // TCP connections to its HTTP and HTTPS ports since start
        uint64_t requests = 0;
        uint64_t rtsp_clients = 0;
};

struct ViewEvent {
        int64_t at_us = 0;   // when the view heard of it (monotonic)
        int64_t sent_us = -1; // when the service sent it (a SendEvent's time, made monotonic), else -1
        std::string method;
        std::string state; // a SendEvent's state, else ""
        bool failed = false;
};

// Objects count towards the in-view share from this long after they first appeared: the
// camera needs a moment to turn to a newcomer.
constexpr int64_t view_grace_us = 1000000;
constexpr size_t view_event_count = 8;

struct ViewModel {
        // From the scenario and the options.
        double max_range = 100.0;
        std::vector<SimZone> zones;
        std::set<std::string> followed_classes{"Human", "Vehicle"};
        double pan_offset = 0.0; // the service's pan offset: camera pan = azimuth + offset
        int64_t start_us = 0;

        // The radar.
        bool radar_connected = false;
        std::vector<std::string> classes;
        uint64_t scenes = 0;
        std::vector<ViewObject> objects;            // of the latest scene
        std::map<uint32_t, int64_t> first_seen_us;  // every object ever seen
        int64_t first_followed_us = -1;             // the first scene with a followed object

        // The camera.
        ViewCamera camera;
        std::vector<int64_t> moves_us;       // every continuous move since start
        std::deque<int64_t> recent_moves_us; // those of the last second

        // The service, through its events.
        std::string state;        // the last state sent, "" before any
        int64_t connected_us = -1; // when it first reported "connected"
        std::deque<ViewEvent> events; // the latest, oldest first

        // In-view accounting.
        int64_t accounted_us = -1;
        double counted_s = 0.0;  // time with at least one followed object past its grace
        double in_view_s = 0.0;  // ... of which at least one of them was in the field of view
        double object_counted_s = 0.0; // the same summed per object
        double object_in_view_s = 0.0;
};

// The camera's horizontal field angle in degrees at its zoom position.
double view_field_angle(const ViewCamera &camera);
// a - b wrapped into [-180, 180).
double view_angle_difference(double a, double b);
// Whether the service ignores a point of the normalised plane: outside the plane, or
// inside the exclusion areas of every zone that has any.
bool view_excluded(const std::vector<SimZone> &zones, double x, double y);
// Of a class the service follows, and not excluded.
bool view_followed(const ViewModel &model, const ViewObject &object);
// Inside the camera's horizontal field of view.
bool view_in_view(const ViewModel &model, const ViewObject &object);

void view_take_scene(ViewModel *model, std::vector<ViewObject> objects, int64_t now_us);
void view_lose_radar(ViewModel *model);
// A new camera status: the in-view share is accounted up to now with the objects and the
// camera position as they were.
void view_take_camera(ViewModel *model, const ViewCamera &camera, int64_t now_us);
// The times of continuous moves the camera logged since the last call.
void view_take_moves(ViewModel *model, const std::vector<int64_t> &moves_us, int64_t now_us);
void view_take_event(ViewModel *model, const ViewEvent &event);

// The first continuous move once the service was connected and a followed object was in
// the scene (whichever came later), and that moment; -1 when there is none yet.
int64_t view_first_move_us(const ViewModel &model, int64_t *since_us);

// The whole state as the status document.
json_t *view_status(const ViewModel &model, int64_t now_us);
