// The client of the radar unit's zone service: fetches the zones' exclusion areas into
// the exclusion zone store at start-up, again whenever the service (re)appears on the
// bus, and from every "ZonesChanged" signal. All of it runs on the main loop.
#pragma once

#include <gio/gio.h>

// Connects to the zone service on the system bus and fetches the areas once. FALSE when
// the bus cannot be reached; a zone service that is not running is not a failure.
gboolean radar_zones_init(void);
void radar_zones_cleanup(void);

// Asks the service for its zones and rebuilds the store from the answer; a failed call
// leaves the store empty.
void radar_zones_fetch(void);
// Fills the store with the exclusion areas of a zone listing: a reply or signal body
// whose first element is of type a(ia(sb)). Called between exclude_areas_clear and
// exclude_areas_publish.
void radar_zones_load(GVariant *body);
// Adds the "excludeArea" polygons of one "GetZoneAreas" reply, whose first element is of
// type a(sa(dd)), to the zone's areas; any other reply adds nothing.
void radar_zones_load_areas(gint32 zone_id, GVariant *reply);
