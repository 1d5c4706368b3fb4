// The zones of a scenario file, as the simulated zone service holds and serves them.
#pragma once

#include <glib.h>

#include <string>
#include <utility>
#include <vector>

struct SimArea {
        std::string name; // the entry name listed by GetZones and asked for by GetZoneAreas
        bool enabled = true;
        std::string kind = "excludeArea";
        std::vector<std::pair<double, double>> polygon; // normalised plane, -1 to 1
};

struct SimZone {
        gint32 id = 0;
        std::vector<SimArea> areas;
};

// Reads the "zones" array from JSON text: either a whole scenario object (other keys are
// ignored, no "zones" key means no zones) or the bare array. False with a message in
// *error for text that is not such a document.
bool zone_scenario_parse(const std::string &text, std::vector<SimZone> &zones, std::string *error);

// The zone listing, (a(ia(sb))): each zone with its distinct entry names and whether
// each is enabled (the first area of a name decides).
GVariant *zone_scenario_listing(const std::vector<SimZone> &zones);
// The areas of one entry of one zone, (a(sa(dd))); nullptr when the zone has no such entry.
GVariant *zone_scenario_areas(const std::vector<SimZone> &zones, const std::string &name, gint32 zone_id);
