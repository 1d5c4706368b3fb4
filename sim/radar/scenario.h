// A scenario of the simulated radar: what the unit shows, read from a JSON file. Keys that
// belong to other simulated services ("zones") are ignored here.
#pragma once

#include <glib.h>

#include <cstdint>
#include <string>
#include <vector>

struct GroundPoint {
        double x; // metres, to the right of the radar
        double y; // metres, in front of the radar
};

struct ScenarioObject {
        uint32_t id = 0;
        uint32_t class_index = 0; // index into the scenario's classification names
        double speed = 1.0;       // metres per second along the waypoints
        bool loop = false;        // true: back to the first waypoint; false: gone after the last
        double start_s = 0.0;     // seconds into the scenario before it appears
        std::vector<GroundPoint> waypoints;
};

struct Scenario {
        double rate_hz = 10.0;
        double max_range = 100.0; // metres that map to 1 in the normalised plane
        std::vector<std::string> classes{"Raw", "RawAssociated", "Unknown", "Human", "Vehicle", "SmallObject"};
        std::vector<ScenarioObject> objects;
};

// Fills scenario from the file; on failure sets error with what is wrong and where.
bool scenario_load(const char *path, Scenario *scenario, GError **error);
// The same from JSON text.
bool scenario_parse(const char *text, Scenario *scenario, GError **error);
