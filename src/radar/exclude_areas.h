// The store of the radar's exclusion areas, in the radar's normalised plane (-1 to 1 on
// both axes), grouped by zone.
#pragma once

#include <glib.h>

void exclude_areas_init(void);
void exclude_areas_cleanup(void);
// TRUE when the point lies outside the normalised square, or inside the exclusion areas
// of every zone that has any. Called from the scene thread.
gboolean exclude_areas_contains(double x, double y);

// Rebuilding, on the main loop only. A rebuild is exclude_areas_clear, any number of
// exclude_areas_add, then exclude_areas_publish: the areas are assembled aside and the
// scene thread sees the new set only once it is complete, never a half-built one.
//
// Starts a new, empty set of areas.
void exclude_areas_clear(void);
// Adds one polygon, a GVariant of type a(dd) of (x, y) vertices, to the zone's areas.
// Polygons of fewer than 3 vertices are dropped (the zone still counts as having areas);
// a value of any other type is ignored.
void exclude_areas_add(gint32 zone_id, GVariant *vertices);
// Makes the set built since the last exclude_areas_clear the one that
// exclude_areas_contains answers from.
void exclude_areas_publish(void);
