#include "geometry.h"
#include "settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

namespace {

void expect_converted(float distance, float azimuth, float pan, float tilt, float width)
{
        float got_pan = 0, got_tilt = 0, got_width = 0;
        radar_to_camera(azimuth, distance, &got_pan, &got_tilt, &got_width);
        EXPECT_FLOAT_EQ(got_pan, pan) << distance << "," << azimuth;
        EXPECT_NEAR(got_tilt, tilt, 1e-5) << distance << "," << azimuth;
        EXPECT_NEAR(got_width, width, 1e-5) << distance << "," << azimuth;
}

} // namespace

TEST(Geometry, ConversionsMatchWorkedValuesClampsAndOffsets)
{
        settings_set_mounting_height(4.0);
        settings_set_tilt_offset(0.0);
        expect_converted(10, 20, 20, -16.699245f, 28.072489f);
        expect_converted(120, 95, 90, -1.9091525f, 3.1822805f);
        // Distance 2 is raised to 3, then to 1.4 x (4 - 1) = 4.2 by the steepness limit.
        expect_converted(2, -100, -90, -35.537678f, 61.525440f);
        expect_converted(4.2f, 0, 0, -35.537678f, 61.525440f);

        float pan = 0, tilt = 0, zoom = 0;
        settings_set_pan_offset(0.0);
        settings_set_zoom_degree(100.0);
        // A group 3.18 degrees wide wants zoom 19.8: clamped to 12; a very wide one to 1.
        set_point_from_group(10, -3, 3.1822805f, 62.9f, &pan, &tilt, &zoom);
        EXPECT_FLOAT_EQ(zoom, 12.0f);
        set_point_from_group(10, -3, 100, 62.9f, &pan, &tilt, &zoom);
        EXPECT_FLOAT_EQ(zoom, 1.0f);

        settings_set_tilt_offset(2.5);
        settings_set_pan_offset(-20.0);
        settings_set_zoom_degree(50.0);
        expect_converted(50, 10, 10, -3.4336302f + 2.5f, 5.7248106f);
        set_point_from_group(10, -3, 20, 62.9f, &pan, &tilt, &zoom);
        EXPECT_EQ(std::pair(pan, tilt), std::pair(350.0f, -3.0f));
        EXPECT_FLOAT_EQ(zoom, 0.5f * 3.145f);
}

TEST(Geometry, CircularHelpersWrapAndCoverTheSmallestArc)
{
        EXPECT_FLOAT_EQ(normalize_angle(-370.0f), 350.0f);
        EXPECT_FLOAT_EQ(normalize_angle(1e20f), std::fmod(1e20f, 360.0f)) << "terminates";
        EXPECT_EQ(normalize_angle(-1e-6f), 0.0f) << "not 360";
        EXPECT_FLOAT_EQ(angle_difference(10, 350), 20.0f);
        EXPECT_FLOAT_EQ(angle_difference(350, 10), -20.0f);
        EXPECT_FLOAT_EQ(angle_difference(0, 180), -180.0f);
        EXPECT_FLOAT_EQ(angle_midpoint(350, 10), 0.0f);
        EXPECT_FLOAT_EQ(angle_midpoint(-30, -10), 340.0f);
        EXPECT_FLOAT_EQ(angle_midpoint(0, 180), 90.0f);

        float start = -1, end = -1;
        float wrapping[] = {10, 350}, plain[] = {30, 10, 20}, equal[] = {5, 5, 5};
        circular_span(wrapping, 2, &start, &end);
        EXPECT_EQ(std::pair(start, end), std::pair(350.0f, 10.0f));
        circular_span(plain, 3, &start, &end);
        EXPECT_EQ(std::pair(start, end), std::pair(10.0f, 30.0f));
        // All equal, or empty: the previous span stays.
        circular_span(equal, 3, &start, &end);
        circular_span(equal, 0, &start, &end);
        EXPECT_EQ(std::pair(start, end), std::pair(10.0f, 30.0f));

        EXPECT_NEAR(angular_distance(0, 0, 90, 0), 90.0f, 1e-4);
        // The cosine of equal directions may round above 1; that must not give NaN.
        EXPECT_NEAR(angular_distance(33.3f, -12.7f, 33.3f, -12.7f), 0.0f, 1e-2);
}
