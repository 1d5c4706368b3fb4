#include "autotune.h"
#include "camera_position.h"
#include "ptz_commands.h"
#include "camera_replies.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

namespace {

TEST(PositionReply, ReadsFirstOccurrencesAndNeverANonFiniteOrOutOfRangeValue)
{
        PositionReply r;
        EXPECT_TRUE(camera_parse_position_reply("pan=10.5\r\ntilt=-20\r\nzoom=500\r\niris=3\r\n", &r));
        EXPECT_EQ(std::tie(r.pan, r.tilt, r.zoom), std::make_tuple(10.5f, -20.0f, 500));
        EXPECT_TRUE(camera_parse_position_reply("zoom=-2147483648\npan=1\npan=2\n", &r));
        EXPECT_EQ(std::tie(r.pan, r.tilt, r.zoom), std::make_tuple(1.0f, -360.0f, INT32_MIN)) << "the first pan counts";
        EXPECT_TRUE(camera_parse_position_reply("zoom=2147483647", &r) && r.zoom == INT32_MAX);
        EXPECT_TRUE(camera_parse_position_reply("tilt=3", &r) && r.tilt == 3.0f) << "an angle alone is a reading";

        const char *unreadable[] = {"", "pan=\ntilt=x\nzoom=", "pan=nan\ntilt=inf\nzoom=99999999999",
                                    "pan=1e39\ntilt=-1e39\nzoom=-99999999999", "PAN=1 Tilt=2 Zoom=3"};
        for (const char *reply : unreadable) {
                EXPECT_FALSE(camera_parse_position_reply(reply, &r)) << reply;
                EXPECT_EQ(std::tie(r.pan, r.tilt, r.zoom), std::make_tuple(-360.0f, -360.0f, 0)) << reply;
        }
        EXPECT_FALSE(camera_parse_position_reply(nullptr, &r));
}

TEST(Probe, OffersTheStreamFromFirmware5_55_1_3OrCvpOrCfpAndReadsFieldAnglesAndProductNumber)
{
        const auto offers = [](const std::string &metadata, const std::string &firmware) {
                const std::string list = "Properties.API.HTTP.Version=3\nProperties.API.Metadata.Metadata=" +
                                         metadata + "\nProperties.Firmware.Version=" + firmware + "\n";
                return probe_offers_metadata_stream(list.c_str());
        };
        const char *with_stream[] = {"5.55.1.3", "5.55.1.4", "5.55.2", "5.56", "6.0", "10.2.3.4", "cvp",
                                     "CFP-2.1", "CvP", "5.55.2.0-beta", "5.55.1.3.1"};
        for (const char *version : with_stream)
                EXPECT_TRUE(offers("yes", version)) << version;
        const char *without[] = {"5.55.1.2", "5.55.1", "5.55", "5.55.0.9", "5.54.99.99", "4.99", "6", "", "x.1", "cv",
                                 "99999999999.1", "-6.0", "5..55"};
        for (const char *version : without)
                EXPECT_FALSE(offers("yes", version)) << version;
        EXPECT_FALSE(offers("no", "9.80.1"));
        EXPECT_FALSE(probe_offers_metadata_stream("Properties.API.Metadata.Metadata=yes\n"));
        EXPECT_FALSE(probe_offers_metadata_stream("Properties.API.Metadata.Metadata=yes\nProperties.Firmware.Versions=cvp"));
        EXPECT_FALSE(probe_offers_metadata_stream(nullptr));

        // Field angles in tenths, and the product number as one bounded token.
        float min_angle = 0, max_angle = 0;
        probe_read_field_angles("PTZ.Limit.L1.MaxFieldAngle=629\nPTZ.Limit.L1.MinFieldAngle=22\n", &min_angle,
                                &max_angle);
        EXPECT_FLOAT_EQ(max_angle, 62.9f);
        EXPECT_FLOAT_EQ(min_angle, 2.2f);
        // The first mention decides, even when it is not the line with the number.
        probe_read_field_angles("PTZ.Limit.L1.MinFieldAngleX=1\nPTZ.Limit.L1.MinFieldAngle=22\n"
                                "PTZ.Limit.L1.MaxFieldAngle=wide",
                                &min_angle, &max_angle);
        EXPECT_TRUE(std::isnan(min_angle) && std::isnan(max_angle));
        probe_read_field_angles("PTZ.Limit.L1.MinFieldAngle=22\n", &min_angle, &max_angle);
        EXPECT_TRUE(std::isnan(max_angle)) << "missing from the list: not the other's value";

        char product[64];
        const std::string longest(63, 'P');
        EXPECT_TRUE(probe_read_product_number(("Brand.Brand=Z\nBrand.ProdNbr=" + longest + "\n").c_str(), product));
        EXPECT_EQ(std::string(product), longest);
        EXPECT_TRUE(probe_read_product_number(("Brand.ProdNbr=" + longest + "Q extra").c_str(), product));
        EXPECT_EQ(std::string(product), longest) << "64 characters are cut to 63";
        EXPECT_FALSE(probe_read_product_number("Brand.ProdNbr", product));
        EXPECT_FALSE(probe_read_product_number("Brand.Brand=Z\n", product));
}

TEST(CameraPosition, AppliesOnlyReportedFieldsAndDerivesMagnificationAndMovingAlsoFromPolls)
{
        camera_position_update(1, 0, 0, 0, 10.0f, -20.0f);
        CameraPosition p = camera_position_get();
        EXPECT_EQ(p.magnification, 1.0f);
        EXPECT_EQ(p.moving, 0);

        camera_position_update(10000, -1, 1, 7, -360.0f, NAN);
        p = camera_position_get();
        EXPECT_EQ(std::tie(p.pan, p.tilt), std::make_tuple(10.0f, -20.0f));
        EXPECT_FLOAT_EQ(p.magnification, 62.9f / 2.2f);
        EXPECT_EQ(std::tie(p.pan_moving, p.tilt_moving, p.zoom_moving, p.moving), std::make_tuple(0, 1, 0, 1));

        camera_position_update(0, 1, 0, 0, -360.0f, -360.0f);
        EXPECT_EQ(camera_position_get().moving, 1) << "any one channel moving";

        camera_position_update(0, 0, 0, -1, INFINITY, -360.0f);
        p = camera_position_get();
        EXPECT_EQ(std::tie(p.zoom_position, p.pan, p.moving), std::make_tuple(10000, 10.0f, 0))
                << "zoom 0 is not a report";

        // A camera at half scale doubles the magnification; broken calibrations are refused.
        zoom_calibration_set_correction(2.0f);
        zoom_calibration_set_correction(NAN);
        zoom_calibration_set_correction(0.0f);
        zoom_calibration_set_field_angles(0.0f, NAN);
        EXPECT_FLOAT_EQ(zoom_magnification(5000), (62.9f / 2.2f - 1.0f) * 4999.0f * 2.0f / 9999.0f + 1.0f);
        zoom_calibration_set_field_angles(4.0f, 60.0f);
        EXPECT_FLOAT_EQ(zoom_magnification(10000), 29.0f);
        zoom_calibration_set_correction(1.0f);
        zoom_calibration_set_field_angles(2.2f, 62.9f);

        // A reply of zoom=-2147483648: one below it is no int.
        EXPECT_FLOAT_EQ(zoom_magnification(INT32_MIN), (62.9f / 2.2f - 1.0f) * -2147483649.0f / 9999.0f + 1.0f);

        // A poll reply sets the moving flag of each channel it read, against the previous
        // poll's reading, and leaves the others as they were.
        camera_position_update(100, 1, 1, 1, 5.0f, 5.0f);
        PositionReply read;
        camera_parse_position_reply("pan=5\ntilt=5\nzoom=100\n", &read);
        camera_remember_poll(read);
        camera_parse_position_reply("zoom=100\n", &read);
        ASSERT_TRUE(camera_apply_position_reply(read));
        p = camera_position_get();
        EXPECT_EQ(std::tie(p.pan_moving, p.tilt_moving, p.zoom_moving), std::make_tuple(1, 1, 0));
        camera_parse_position_reply("pan=6\ntilt=5\n", &read);
        ASSERT_TRUE(camera_apply_position_reply(read));
        p = camera_position_get();
        EXPECT_EQ(std::tie(p.pan_moving, p.tilt_moving, p.zoom_moving), std::make_tuple(1, 0, 0));
        camera_remember_poll(read); // no zoom read: the last one stays
        camera_parse_position_reply("zoom=100\n", &read);
        ASSERT_TRUE(camera_apply_position_reply(read));
        EXPECT_EQ(camera_position_get().zoom_moving, 0);
        EXPECT_FALSE(camera_apply_position_reply(PositionReply{}));
}

TEST(AutotuneZoomCheck, FullScaleAround100HalfScaleAround50NothingElse)
{
        const std::pair<int, float> table[] = {{44, 0.0f}, {45, 2.0f}, {50, 2.0f}, {55, 2.0f}, {56, 0.0f},
                                               {94, 0.0f}, {95, 1.0f}, {105, 1.0f}, {106, 0.0f}, {70, 0.0f}};
        for (const auto &[zoom, correction] : table)
                EXPECT_EQ(autotune_zoom_correction(zoom), correction) << zoom;
}

} // namespace
