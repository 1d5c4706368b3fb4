#include "exclude_areas.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace {

// One edge of a closed ring, reduced to what the crossing test reads. The slope is the
// same double the test would compute for the edge, worked out once when the ring is built.
struct RingEdge {
        double xi;
        double yi;
        double yj;
        double slope; // (yj - yi) / (xj - xi); infinite for a vertical edge
};

// One corner of an area as the zone service sends it: an element of "a(dd)".
struct Vertex {
        double x;
        double y;
};
static_assert(sizeof(Vertex) == 2 * sizeof(double), "a vertex is read in place from its (dd) pair");

struct Ring {
        std::vector<RingEdge> edges;
        // No edge is considered outside [y_min, y_max), so such points skip the walk.
        double y_min;
        double y_max;
};

struct ZoneGroup {
        gint32 zone_id;
        std::vector<Ring> rings;
};

// The zones that have exclusion areas, in the order their first area was met.
struct ZoneStore {
        std::vector<ZoneGroup> groups;
};

// The scene thread tests against `live` while the main loop rebuilds: the new set is
// built aside in `pending` and swapped in under `live_mutex`, which is also held over
// every test, so a test sees either the old set or the new one, whole. The lock is held
// only for the swap and the test, never while the zone service is asked.
std::mutex live_mutex;
std::unique_ptr<const ZoneStore> live;
std::unique_ptr<ZoneStore> pending; // main loop only

bool exclude_areas_outside_square(double x, double y)
{
        return x > 1 || y > 1 || x < -1 || y < -1;
}

// Crossing number: an edge counts when the point's y lies in its half-open span (lower
// end in, upper end out, so horizontal edges never count) and the point lies strictly
// left of where the edge crosses that y. Odd count: inside.
bool ring_contains(const Ring &ring, double x, double y)
{
        if (y < ring.y_min || y >= ring.y_max)
                return false;
        bool inside = false;
        for (const RingEdge &edge : ring.edges) {
                const bool spans = (edge.yi <= y && y < edge.yj) || (edge.yj <= y && y < edge.yi);
                if (spans && x < edge.xi + (y - edge.yi) / edge.slope)
                        inside = !inside;
        }
        return inside;
}

bool group_contains(const ZoneGroup &group, double x, double y)
{
        for (const Ring &ring : group.rings)
                if (ring_contains(ring, x, y))
                        return true;
        return false;
}

// A zone whose areas gave no usable ring excludes nothing, so it lets every point through.
bool store_contains(const ZoneStore &store, double x, double y)
{
        if (store.groups.empty())
                return false;
        for (const ZoneGroup &group : store.groups)
                if (!group_contains(group, x, y))
                        return false;
        return true;
}

ZoneGroup &store_group(ZoneStore &store, gint32 zone_id)
{
        for (ZoneGroup &group : store.groups)
                if (group.zone_id == zone_id)
                        return group;
        return store.groups.emplace_back(ZoneGroup{zone_id, {}});
}

// The ring closes itself: the last vertex connects back to the first.
Ring ring_from_vertices(std::span<const Vertex> vertices)
{
        Ring ring{{}, vertices.front().y, vertices.front().y};
        for (size_t i = 0; i < vertices.size(); i++) {
                const auto [xi, yi] = vertices[i];
                const auto [xj, yj] = vertices[(i + 1) % vertices.size()];
                ring.edges.push_back({xi, yi, yj, (yj - yi) / (xj - xi)});
                ring.y_min = std::min(ring.y_min, yi);
                ring.y_max = std::max(ring.y_max, yi);
        }
        return ring;
}

} // namespace

void exclude_areas_init(void)
{
        std::lock_guard lock(live_mutex);
        if (!live)
                live = std::make_unique<const ZoneStore>();
}

void exclude_areas_cleanup(void)
{
        std::unique_ptr<const ZoneStore> old;
        {
                std::lock_guard lock(live_mutex);
                old = std::move(live);
        }
        pending.reset();
}

gboolean exclude_areas_contains(double x, double y)
{
        if (exclude_areas_outside_square(x, y))
                return TRUE;
        std::lock_guard lock(live_mutex);
        return live && store_contains(*live, x, y);
}

void exclude_areas_clear(void)
{
        pending = std::make_unique<ZoneStore>();
}

void exclude_areas_add(gint32 zone_id, GVariant *vertices)
{
        if (!vertices || !g_variant_is_of_type(vertices, G_VARIANT_TYPE("a(dd)")))
                return;
        if (!pending)
                pending = std::make_unique<ZoneStore>();
        // The group exists once the zone has shown an exclusion area, usable or not.
        ZoneGroup &group = store_group(*pending, zone_id);

        // Pairs of doubles have a fixed size: the array is read in place.
        gsize count;
        const auto *points = static_cast<const Vertex *>(g_variant_get_fixed_array(vertices, &count, sizeof(Vertex)));
        if (count >= 3)
                group.rings.push_back(ring_from_vertices({points, count}));
}

void exclude_areas_publish(void)
{
        std::unique_ptr<const ZoneStore> next = pending ? std::move(pending) : std::make_unique<ZoneStore>();
        {
                std::lock_guard lock(live_mutex);
                live.swap(next);
        }
        // The old set is freed here, outside the lock, so the scene thread never waits on it.
}
