#include "exclude_areas.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

namespace {

using Polygon = std::vector<std::pair<double, double>>;
using Points = std::vector<std::tuple<double, double, bool>>; // x, y, excluded

void add(gint32 zone, const Polygon &points)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(dd)"));
        for (const auto &[x, y] : points)
                g_variant_builder_add(&builder, "(dd)", x, y);
        g_autoptr(GVariant) vertices = g_variant_ref_sink(g_variant_builder_end(&builder));
        exclude_areas_add(zone, vertices);
}

void expect(const Points &points)
{
        for (const auto &[x, y, excluded] : points)
                EXPECT_EQ(exclude_areas_contains(x, y), excluded) << "(" << x << ", " << y << ")";
}

void rebuild(const std::vector<std::pair<gint32, Polygon>> &areas, const Points &then = {})
{
        exclude_areas_clear();
        for (const auto &[zone, points] : areas)
                add(zone, points);
        exclude_areas_publish();
        expect(then);
}

const Polygon square = {{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}};

class ExcludeAreas : public ::testing::Test {
protected:
        void SetUp() override { exclude_areas_init(); }
        void TearDown() override { exclude_areas_cleanup(); }
};

TEST_F(ExcludeAreas, LowerAndLeftEdgesBelongToTheRingUpperAndRightEdgesDoNot)
{
        // Points outside the square are excluded with areas present as well.
        rebuild({{1, square}}, {{0, 0, true}, {-0.5, 0, true}, {0.5, 0, false}, {0, -0.5, true}, {0, 0.5, false},
                {-0.5, -0.5, true}, {0.5, 0.5, false}, {-0.6, 0, false}, {0, -0.6, false}, {2, 0, true}});

        // A concave ring: the notch of the U is outside although it lies between two arms.
        rebuild({{1, {{-0.6, -0.6}, {0.6, -0.6}, {0.6, 0.6}, {0.2, 0.6}, {0.2, -0.2}, {-0.2, -0.2}, {-0.2, 0.6},
                      {-0.6, 0.6}}}}, {{0, 0.3, false}, {0.4, 0.3, true}, {-0.4, 0.3, true}, {0, -0.4, true}});

        // Two edges meeting halfway up count once at the height of their vertex.
        rebuild({{1, {{0, -0.5}, {0.5, 0}, {0, 0.5}, {-0.5, 0}}}},
                {{0, 0, true}, {-0.49, 0, true}, {-0.6, 0, false}, {0.6, 0, false}, {0, -0.25, true}});

        // A slanted edge: the crossing abscissa is interpolated along it.
        rebuild({{1, {{0, 0}, {0.8, 0}, {0, 0.8}}}}, {{0.39, 0.4, true}, {0.41, 0.4, false}});
}

// A point is excluded when it lies in some ring of every zone.
TEST_F(ExcludeAreas, EveryZoneNeedsARingAroundThePointARingNeedsThreeVerticesAndARebuildWaitsForItsPublication)
{
        const Polygon segment = {{-0.5, -0.5}, {0.5, 0.5}};
        rebuild({{1, {{-0.5, -0.5}, {0.5, -0.5}, {0, 0.5}}}}, {{0, 0, true}});

        // Zone 2's only area has two vertices: a zone with areas that contains no point.
        rebuild({{1, square}, {2, segment}}, {{0, 0, false}, {0, -3, true}});

        // A value that is not a vertex array adds nothing, not even an empty zone.
        exclude_areas_clear();
        add(1, square);
        g_autoptr(GVariant) not_vertices = g_variant_ref_sink(g_variant_new("(dd)", 0.0, 0.0));
        exclude_areas_add(2, not_vertices);
        exclude_areas_publish();
        expect({{0, 0, true}});

        // Rings of a zone split around another zone's: either ring satisfies its zone.
        const Polygon left = {{-0.8, -0.4}, {0.2, -0.4}, {0.2, 0.4}, {-0.8, 0.4}};
        const Polygon right = {{-0.2, -0.4}, {0.8, -0.4}, {0.8, 0.4}, {-0.2, 0.4}};
        rebuild({{1, left}, {2, square}, {1, right}}, {{-0.3, 0, true}, {0.4, 0, true}, {0.7, 0, false}});

        exclude_areas_clear();
        add(7, {{0.6, 0.6}, {0.9, 0.6}, {0.9, 0.9}});
        expect({{-0.3, 0, true}, {0.7, 0.65, false}});
        exclude_areas_publish();
        expect({{-0.3, 0, false}, {0.7, 0.65, true}});

        // Points outside the square are excluded, its bounds are not: without areas and
        // before the store exists at all.
        const Points square_rule = {{1.0, -1.0, false}, {-1.0, 1.0, false}, {1.0000001, 0, true},
                                    {-1.0000001, 0, true}, {0, -1.5, true}, {0, 1.0000001, true}, {0, 0, false}};
        rebuild({}, square_rule);
        exclude_areas_cleanup();
        expect(square_rule);
}

} // namespace
