#include "exclude_areas.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Polygon = std::vector<std::pair<double, double>>;

void add(gint32 zone, const Polygon &points)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(dd)"));
        for (const auto &[x, y] : points)
                g_variant_builder_add(&builder, "(dd)", x, y);
        GVariant *vertices = g_variant_ref_sink(g_variant_builder_end(&builder));
        exclude_areas_add(zone, vertices);
        g_variant_unref(vertices);
}

const Polygon square = {{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}};

class ExcludeAreas : public ::testing::Test {
protected:
        void SetUp() override { exclude_areas_init(); }
        void TearDown() override { exclude_areas_cleanup(); }

        static void rebuild(const std::vector<std::pair<gint32, Polygon>> &areas)
        {
                exclude_areas_clear();
                for (const auto &[zone, points] : areas)
                        add(zone, points);
                exclude_areas_publish();
        }
};

TEST_F(ExcludeAreas, PointsOutsideTheSquareAreExcludedItsBoundsAreNot)
{
        EXPECT_FALSE(exclude_areas_contains(1.0, -1.0));
        EXPECT_FALSE(exclude_areas_contains(-1.0, 1.0));
        EXPECT_FALSE(exclude_areas_contains(0, 0));
        EXPECT_TRUE(exclude_areas_contains(1.0000001, 0));
        EXPECT_TRUE(exclude_areas_contains(-1.0000001, 0));
        EXPECT_TRUE(exclude_areas_contains(0, -1.5));
        EXPECT_TRUE(exclude_areas_contains(0, 1.0000001));

        // The square rule holds with areas present and before the store exists at all.
        rebuild({{1, square}});
        EXPECT_TRUE(exclude_areas_contains(2, 0));
        exclude_areas_cleanup();
        EXPECT_FALSE(exclude_areas_contains(0, 0));
        EXPECT_TRUE(exclude_areas_contains(0, 5));
}

TEST_F(ExcludeAreas, LowerAndLeftEdgesBelongToTheRingUpperAndRightEdgesDoNot)
{
        rebuild({{1, square}});
        EXPECT_TRUE(exclude_areas_contains(0, 0));
        EXPECT_TRUE(exclude_areas_contains(-0.5, 0));  // left edge
        EXPECT_FALSE(exclude_areas_contains(0.5, 0));  // right edge
        EXPECT_TRUE(exclude_areas_contains(0, -0.5));  // bottom edge
        EXPECT_FALSE(exclude_areas_contains(0, 0.5));  // top edge
        EXPECT_TRUE(exclude_areas_contains(-0.5, -0.5));
        EXPECT_FALSE(exclude_areas_contains(0.5, 0.5));
        EXPECT_FALSE(exclude_areas_contains(-0.6, 0));
        EXPECT_FALSE(exclude_areas_contains(0, -0.6));

        // A concave ring: the notch of the U is outside although it lies between two arms.
        rebuild({{1, {{-0.6, -0.6}, {0.6, -0.6}, {0.6, 0.6}, {0.2, 0.6}, {0.2, -0.2}, {-0.2, -0.2}, {-0.2, 0.6},
                      {-0.6, 0.6}}}});
        EXPECT_FALSE(exclude_areas_contains(0, 0.3));
        EXPECT_TRUE(exclude_areas_contains(0.4, 0.3));
        EXPECT_TRUE(exclude_areas_contains(-0.4, 0.3));
        EXPECT_TRUE(exclude_areas_contains(0, -0.4));

        // A slanted edge: the crossing abscissa is interpolated along it.
        rebuild({{1, {{0, 0}, {0.8, 0}, {0, 0.8}}}});
        EXPECT_TRUE(exclude_areas_contains(0.39, 0.4));
        EXPECT_FALSE(exclude_areas_contains(0.41, 0.4));
}

TEST_F(ExcludeAreas, PolygonsNeedThreeVerticesAndAZoneWithoutRingsExcludesNothing)
{
        rebuild({{1, {{-0.5, -0.5}, {0.5, 0.5}}}});
        EXPECT_FALSE(exclude_areas_contains(0, 0));

        rebuild({{1, {{-0.5, -0.5}, {0.5, -0.5}, {0, 0.5}}}});
        EXPECT_TRUE(exclude_areas_contains(0, 0));

        // Zone 2 has only a two-vertex area: it still counts as a zone with areas, and
        // it contains no point, so nothing inside the square is excluded.
        rebuild({{1, square}, {2, {{-0.5, -0.5}, {0.5, 0.5}}}});
        EXPECT_FALSE(exclude_areas_contains(0, 0));
        EXPECT_TRUE(exclude_areas_contains(0, -3));

        // A value that is not a vertex array adds nothing, not even an empty zone.
        exclude_areas_clear();
        add(1, square);
        GVariant *not_vertices = g_variant_ref_sink(g_variant_new("(dd)", 0.0, 0.0));
        exclude_areas_add(2, not_vertices);
        g_variant_unref(not_vertices);
        exclude_areas_publish();
        EXPECT_TRUE(exclude_areas_contains(0, 0));
}

TEST_F(ExcludeAreas, APointMustLieInSomeRingOfEveryZone)
{
        const Polygon left = {{-0.8, -0.4}, {0.2, -0.4}, {0.2, 0.4}, {-0.8, 0.4}};
        const Polygon right = {{-0.2, -0.4}, {0.8, -0.4}, {0.8, 0.4}, {-0.2, 0.4}};
        rebuild({{1, left}, {2, right}});
        EXPECT_TRUE(exclude_areas_contains(0, 0));     // in the overlap
        EXPECT_FALSE(exclude_areas_contains(-0.5, 0)); // zone 1 only
        EXPECT_FALSE(exclude_areas_contains(0.5, 0));  // zone 2 only

        // Two rings of one zone: either of them satisfies that zone.
        rebuild({{1, left}, {1, right}});
        EXPECT_TRUE(exclude_areas_contains(-0.5, 0));
        EXPECT_TRUE(exclude_areas_contains(0.5, 0));
        EXPECT_FALSE(exclude_areas_contains(0, 0.9));

        // Zones added in any order, rings of a zone split around another zone's.
        rebuild({{1, left}, {2, square}, {1, right}});
        EXPECT_TRUE(exclude_areas_contains(0.4, 0));
        EXPECT_FALSE(exclude_areas_contains(0.7, 0));
}

TEST_F(ExcludeAreas, ARebuildTakesEffectOnlyWhenPublished)
{
        rebuild({{1, square}});
        exclude_areas_clear();
        EXPECT_TRUE(exclude_areas_contains(0, 0));
        add(7, {{0.6, 0.6}, {0.9, 0.6}, {0.9, 0.9}});
        EXPECT_TRUE(exclude_areas_contains(0, 0));
        EXPECT_FALSE(exclude_areas_contains(0.7, 0.65));
        exclude_areas_publish();
        EXPECT_FALSE(exclude_areas_contains(0, 0));
        EXPECT_TRUE(exclude_areas_contains(0.7, 0.65));

        // An empty rebuild empties the store; a second init keeps what is there.
        rebuild({{1, square}});
        exclude_areas_init();
        EXPECT_TRUE(exclude_areas_contains(0, 0));
        rebuild({});
        EXPECT_FALSE(exclude_areas_contains(0, 0));
}

// The scene thread tests while the main loop rebuilds. Both sets built here give the
// same answers; any half-built store in between gives another answer for one of the
// points: empty (inside is no longer excluded) or zone 1 alone (only_zone1 becomes excluded).
TEST_F(ExcludeAreas, TheSceneThreadNeverSeesAHalfBuiltStore)
{
        const Polygon zone1 = {{-0.8, -0.8}, {0.4, -0.8}, {0.4, 0.8}, {-0.8, 0.8}};
        const Polygon zone2a = {{-0.4, -0.8}, {0.8, -0.8}, {0.8, 0.8}, {-0.4, 0.8}};
        const Polygon zone2b = {{-0.4, -0.9}, {0.9, -0.9}, {0.9, 0.9}, {-0.4, 0.9}};
        rebuild({{1, zone1}, {2, zone2a}});

        std::atomic<bool> stop{false};
        std::atomic<int> wrong{0};
        std::atomic<int> tests{0};
        std::thread scene([&] {
                while (!stop.load()) {
                        if (!exclude_areas_contains(0, 0) || exclude_areas_contains(-0.6, 0))
                                wrong++;
                        tests++;
                }
        });
        for (int i = 0; i < 2000 || tests.load() < 1000; i++)
                rebuild({{1, zone1}, {2, (i % 2) ? zone2a : zone2b}});
        stop = true;
        scene.join();
        EXPECT_EQ(wrong.load(), 0);
}

} // namespace
