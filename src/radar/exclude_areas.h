// The store of the radar's exclusion areas, in the radar's normalised plane (-1 to 1 on
// both axes), grouped by zone.
#pragma once

#include <glib.h>

void exclude_areas_init(void);
void exclude_areas_cleanup(void);
// TRUE when the point lies outside the normalised square, or inside the exclusion areas
// of every zone that has any. Called from the scene thread.
gboolean exclude_areas_contains(double x, double y);
