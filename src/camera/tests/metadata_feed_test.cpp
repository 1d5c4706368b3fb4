#include "camera_position.h"
#include "metadata_feed.h"
#include "ptz_tracking.h"
#include "tracking.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

const std::string status_payload =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><tt:MetadataStream xmlns:tt=\"http://www.onvif.org/ver10/schema\">"
        "<tt:PTZ><tt:PTZStatus><tt:UtcTime>2026-11-22T10:00:00Z</tt:UtcTime><tt:Position>"
        "<tt:PanTilt x=\"0.5\" y=\"-0.25\" space=\"http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace\"/>"
        "<tt:Zoom x=\"0.0123\" space=\"http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace\"/>"
        "</tt:Position><tt:MoveStatus><tt:PanTilt>MOVING</tt:PanTilt><tt:Zoom>IDLE</tt:Zoom></tt:MoveStatus>"
        "</tt:PTZStatus></tt:PTZ></tt:MetadataStream>";

// Parses from a heap block of exactly the payload's size, so a read past its end is caught.
CameraPosition parse(const std::string &payload)
{
        std::vector<uint8_t> exact(payload.begin(), payload.end());
        parse_ptz_metadata(exact.data(), static_cast<uint32_t>(exact.size()), nullptr);
        return camera_position_get();
}

void reset_position()
{
        camera_position_update(777, 1, 1, 1, 11.0f, -11.0f);
}

TEST(MetadataPayload, ReadsPositionAndMoveStatusOfAnOnvifPtzStatusAndOnlyWholeValuesOfACutOne)
{
        camera_position_update(777, 0, 0, 1, 11.0f, -11.0f); // each flag the opposite of the payload's
        CameraPosition p = parse(status_payload);
        EXPECT_FLOAT_EQ(p.pan, 90.0f);
        EXPECT_FLOAT_EQ(p.tilt, -45.0f);
        EXPECT_EQ(std::tie(p.zoom_position, p.pan_moving, p.tilt_moving, p.zoom_moving), std::make_tuple(123, 1, 1, 0));

        reset_position();
        p = parse("<tt:MoveStatus><tt:PanTilt>IDLE</tt:PanTilt><tt:Zoom>IDLE");
        EXPECT_EQ(p.pan, 11.0f) << "no position in it; the last status ends the payload";
        EXPECT_EQ(p.moving, 0);

        reset_position();
        p = parse("<tt:Position><tt:Zoom x=\"1\"/></tt:Position>");
        EXPECT_EQ(p.zoom_position, 10000);
        p = parse("<tt:Position><tt:Zoom x=\"0\"/><tt:PanTilt x=\"0.1\"/></tt:Position>");
        EXPECT_EQ(std::tie(p.zoom_position, p.pan), std::make_tuple(10000, 11.0f)) << "zoom 0 and a lone x are not reports";
        // A zoom that scales to 2^31, one past the largest int.
        p = parse("<tt:Position><tt:PanTilt x=\"nan\" y=\"inf\"/><tt:Zoom x=\"214748.36\"/></tt:Position>");
        EXPECT_EQ(std::tie(p.zoom_position, p.pan), std::make_tuple(10000, 11.0f));

        // Elements in another order: the move status before the position is not read.
        reset_position();
        p = parse("<tt:MoveStatus><tt:PanTilt>IDLE</tt:PanTilt></tt:MoveStatus><tt:Position>"
                  "<tt:PanTilt x=\"-1\" y=\"0\"/></tt:Position><tt:Zoom>IDLE</tt:Zoom>");
        EXPECT_FLOAT_EQ(p.pan, -180.0f);
        EXPECT_EQ(std::tie(p.pan_moving, p.zoom_moving), std::make_tuple(1, 1));
        p = parse("<tt:MoveStatus><tt:PanTilt>STOPPED</tt:PanTilt><tt:Zoom>IDLE</tt:Zoom></tt:MoveStatus>");
        EXPECT_EQ(std::tie(p.pan_moving, p.zoom_moving), std::make_tuple(1, 0)) << "an unknown status is not a report";

        // Cut anywhere: nothing read past its end, and only whole values.
        for (size_t n = 0; n <= status_payload.size(); n++) {
                reset_position();
                const CameraPosition cut = parse(status_payload.substr(0, n));
                EXPECT_TRUE(cut.pan == 11.0f || cut.pan == 90.0f) << n << ": " << cut.pan;
                EXPECT_TRUE(std::isfinite(cut.tilt));
        }
        parse_ptz_metadata(nullptr, 0, nullptr);
}

TEST(MetadataUrl, BracketsIpv6AndScopesLinkLocalToEth0)
{
        const std::pair<std::string, std::string> hosts[] = {
                {"192.168.0.90", "192.168.0.90"}, {"fd00::5", "[fd00::5]"}, {"fe80::5", "[fe80::5%eth0]"}};
        for (const auto &[address, host] : hosts) {
                g_autofree gchar *url = metadata_rtsp_url(address.c_str(), "554", "zelk-media/x?ptz=all");
                EXPECT_EQ(std::string(url), "rtsp://" + host + ":554/zelk-media/x?ptz=all");
        }
}

// The stream's thread applies reports while the main loop's tick reads them: every copy
// the tick takes is one whole report (here: tilt is always half the pan).
TEST(MetadataThreads, StreamWritesWhileTheControlTickReads)
{
        tracking_core_attach(ptz_controller_create(), target_tracker_create());
        std::atomic<bool> done{false};
        std::thread stream([&] {
                for (int i = 0; i < 20000; i++) {
                        const double x = (i % 200) / 200.0;
                        gchar *payload = g_strdup_printf("<tt:Position><tt:PanTilt x=\"%.4f\" y=\"%.5f\"/>"
                                                         "<tt:Zoom x=\"%.4f\"/></tt:Position>", x, x / 2.0, x);
                        parse_ptz_metadata(reinterpret_cast<const uint8_t *>(payload),
                                           static_cast<uint32_t>(strlen(payload)), nullptr);
                        g_free(payload);
                }
                done = true;
        });
        size_t torn = 0;
        while (!done) {
                camera_tracking_tick();
                zoom_calibration_set_field_angles(2.2f, 62.9f);
                const CameraPosition p = camera_position_get();
                torn += std::fabs(p.tilt - p.pan / 2.0f) > 0.01f;
        }
        stream.join();
        EXPECT_EQ(torn, 0u);
        PtzController *controller = get_ptz_controller();
        TargetTracker *tracker = get_target_tracker();
        tracking_core_attach(nullptr, nullptr);
        target_tracker_destroy(tracker);
        ptz_controller_destroy(controller);
}

} // namespace
