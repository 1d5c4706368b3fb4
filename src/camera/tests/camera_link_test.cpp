// The connection manager, the tracking moves and the autotune, stepped on an injected clock
// against the simulated camera (inside the rig's sandbox) and event producer.
#include "autotune.h"
#include "camera.h"
#include "camera_connection.h"
#include "camera_position.h"
#include "clock.h"
#include "events.h"
#include "log_capture.h"
#include "metadata_feed.h"
#include "persistent.h"
#include "ptz_commands.h"
#include "private_bus.h"
#include "settings.h"
#include "settings_load.h"
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "tracking.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <memory>
#include <tuple>

namespace {

using Strings = std::vector<std::string>;

constexpr const char *product = "ZPT-6100";

class CameraLink : public ::testing::Test {
protected:
        static void SetUpTestSuite()
        {
                events = new SimEventsProcess(private_bus_of_program().address());
                ASSERT_TRUE(persistent_setup());
                settings_load();
                ASSERT_TRUE(declare_state_event());
        }
        static void TearDownTestSuite()
        {
                undeclare_state_event();
                settings_cleanup();
                persistent_cleanup();
                delete events;
        }

        void SetUp() override
        {
                clock_use_manual(1'000'000'000);
                events->clear();
        }
        void TearDown() override
        {
                ptz_control_teardown();
                EXPECT_EQ(camera_product_number(), nullptr) << "no model carried into the next connection";
                EXPECT_EQ(g_main_context_find_source_by_funcs_user_data(nullptr, &g_timeout_funcs, nullptr), nullptr)
                        << "no timer of the link left running";
                clock_use_real();
                // A later test on the real clock would otherwise send the camera home.
                settings_set_return_to_home_enabled(FALSE);
        }

        // A camera, the service set up to connect to it, and the first control tick.
        void start(const std::vector<std::string> &options, const char *camera_name)
        {
                camera = std::make_unique<SimCameraProcess>(options);
                persistent_set_camera_name(camera_name);
                settings_set_camera_connection("127.0.0.1", "root", "pass");
                ptz_control_setup();
                events->clear();
                tick();
        }

        // The paths the camera was sent since the last call, 401 challenges left out.
        Strings sent()
        {
                Strings paths;
                for (const SimCameraRequest &r : camera->requests(next_request, &next_request))
                        if (r.status != 401)
                                paths.push_back(r.path);
                return paths;
        }

        void tick(int n = 1)
        {
                for (int i = 0; i < n; i++) {
                        clock_advance_us(100'000);
                        ptz_control_tick(nullptr);
                }
        }

        // Ticks until the controller goes idle; how many.
        size_t tick_while_active()
        {
                size_t n = 0;
                while (controller_is_active() && n < 200) {
                        tick();
                        n++;
                }
                return n;
        }

        static inline SimEventsProcess *events = nullptr;
        std::unique_ptr<SimCameraProcess> camera;
        uint64_t next_request = 0;
};

const std::string move_prefix = "zelk-cgi/com/ptz.cgi?continuouspantiltmove=";
const std::string stop = move_prefix + "0.000000,0.000000&continuouszoommove=0.000000";
const std::string home = "zelk-cgi/com/ptz.cgi?move=home";

TEST_F(CameraLink, FailsOnWrongCredentialsUntilTheSettingsChangeThenProbesAndPublishesEveryStateChangeOnce)
{
        persistent_set_guard_tour_enabled(TRUE);
        persistent_set_guard_tour_time(7.5);
        start({"--fault", "wrong_credentials", "--metadata", "no", "--min-field-angle", "30", "--max-field-angle", "600"},
              "");
        EXPECT_TRUE(tracker_get_guard_tour_enabled()) << "the set-up hands the file's guard tour to the tracker";
        EXPECT_EQ(tracker_get_guard_tour_time(), 7.5f);
        persistent_set_guard_tour_enabled(FALSE);
        tracker_set_guard_tour_enabled(FALSE);
        EXPECT_EQ(events->states(), Strings{"connecting"}) << "already disconnected: not published again";
        EXPECT_TRUE(sent().empty()) << "the poll asks, not the tick";

        for (int i = 0; i < 3; i++)
                position_poll_tick(nullptr);
        const size_t asked = camera->requests().size();
        position_poll_tick(nullptr);
        EXPECT_GT(camera->requests().size(), asked) << "it goes on polling";
        EXPECT_EQ(events->states(), (Strings{"connecting", "connect_failed"}));
        camera->set_fault("wrong_credentials", false);
        const uint64_t connections = camera->status().http_connections;
        camera_request_reconnect();
        tick();
        sent();
        position_poll_tick(nullptr);
        EXPECT_EQ(camera->status().http_connections, connections + 1) << "a reconnect starts on a connection of its own";
        EXPECT_EQ(sent(), (Strings{"zelk-cgi/com/ptz.cgi?query=position",
                                   "zelk-cgi/param.cgi?action=list&group=Properties",
                                   "zelk-cgi/param.cgi?action=list&group=Ptz.Limit.L1",
                                   "zelk-cgi/param.cgi?action=list&group=Brand"}));
        EXPECT_EQ(events->states(), (Strings{"connecting", "connect_failed", "disconnected", "connecting", "autotune"}))
                << "a model the gains are not tuned for";
        EXPECT_EQ(camera_position_source(), POSITION_POLLING);
        EXPECT_FLOAT_EQ(zoom_calibration_get().min_field_angle, 3.0f);
        EXPECT_FLOAT_EQ(zoom_calibration_get().max_field_angle, 60.0f);
        zoom_calibration_set_field_angles(2.2f, 62.9f);
        EXPECT_FALSE(ptz_control_tick(nullptr)) << "the autotune takes over, and still runs at the teardown";

        // An address of six characters is no camera: stop, disconnected, nothing more asked.
        settings_set_camera_connection("1.2.3.", "root", "pass");
        camera_request_reconnect();
        sent();
        tick();
        position_poll_tick(nullptr);
        EXPECT_EQ(sent(), Strings{stop});
        EXPECT_EQ(events->states().back(), "disconnected");
        // Seven may be one: it is tried.
        settings_set_camera_connection("1.2.3.4", "root", "pass");
        camera_request_reconnect();
        tick();
        EXPECT_EQ(events->states().back(), "connecting");
}

TEST_F(CameraLink, PollsMarkMovingChannelsThenFollowsWithAMoveEachTickOneStopAndHomeOnceAfterTheTimeOut)
{
        start({"--metadata", "no"}, product);
        position_poll_tick(nullptr);
        ASSERT_EQ(camera_connection_state(), CAMERA_CONNECTED);
        // A channel moves when its reading changed since the previous poll.
        camera->teleport(10.5, -19.0, 500);
        position_poll_tick(nullptr);
        camera->teleport(10.5, -20.0, 500);
        position_poll_tick(nullptr);
        const CameraPosition p = camera_position_get();
        EXPECT_FLOAT_EQ(p.tilt, -20.0f);
        EXPECT_EQ(std::make_tuple(p.pan_moving, p.tilt_moving, p.zoom_moving), std::make_tuple(0, 1, 0));
        sent();

        tracking_set_enabled(TRUE);
        settings_set_return_to_home_enabled(TRUE);
        settings_set_return_to_home_timeout(2);
        settings_set_zoom_degree(0.0); // the set point's zoom is then 1, where the camera is
        camera_position_update(1, 0, 0, 0, 0.0f, -10.0f);

        tracker_update_target(1, 7, 20.0f, -10.0f, 4.0f);
        tick(5);
        const Strings moves = sent();
        ASSERT_EQ(moves.size(), 5u);
        for (const std::string &m : moves)
                EXPECT_TRUE(m.rfind(move_prefix, 0) == 0 && m != stop) << m;

        // Target gone, camera on the set point: a move each active tick, the last the one stop.
        tracker_remove_target(1, 7);
        camera_position_update(1, 0, 0, 0, 20.0f, -10.0f);
        const size_t active_ticks = tick_while_active();
        EXPECT_GT(active_ticks, 15u) << "settled for more than 1.5 s";
        Strings after = sent();
        EXPECT_EQ(after.size(), active_ticks);
        EXPECT_EQ(after.back(), stop);

        // Home on the first tick 2 s after it went idle, and only once.
        tick(19);
        EXPECT_TRUE(sent().empty());
        tick();
        EXPECT_EQ(sent(), Strings{home});
        tick(30);
        EXPECT_TRUE(sent().empty());

        // Moved by exactly 2 degrees: still home; by more, or return to home off and on meanwhile (0): not.
        for (const float moved_by : {2.0f, 2.5f, 0.0f}) {
                tracker_update_target(1, 8, 40.0f, -10.0f, 4.0f);
                tick(3);
                tracker_remove_target(1, 8);
                camera_position_update(1, 0, 0, 0, 40.0f, -10.0f);
                tick_while_active();
                tick(10);
                camera_position_update(1, 0, 0, 0, 40.0f + moved_by, -10.0f);
                if (moved_by == 0.0f) {
                        settings_set_return_to_home_enabled(FALSE);
                        tick();
                        settings_set_return_to_home_enabled(TRUE);
                }
                tick(40);
                after = sent();
                EXPECT_EQ(std::count(after.begin(), after.end(), home), moved_by == 2.0f ? 1 : 0) << moved_by;
        }

        // Switching tracking off stops the camera once and sends nothing more.
        tracker_update_target(1, 9, 80.0f, -10.0f, 4.0f);
        tick(2);
        tracking_set_enabled(FALSE);
        sent();
        tick(5);
        EXPECT_EQ(sent(), Strings{stop});
        tracker_remove_target(1, 9);

        // A camera that refuses commands is reported once, and again after one went through.
        LogCapture log;
        for (const bool refuse : {true, true, false, true, false}) {
                camera->set_fault("wrong_credentials", refuse);
                camera_send_stop();
        }
        EXPECT_EQ(log.matching("WARNING: Camera refused a command with HTTP status 401: " + stop).size(), 2u);
}

// An axis as the autotune sees it: turns rate degrees per second per speed unit, at most
// 100 units, and acts on each command two ticks late.
struct Axis {
        float position;
        float rate;
        std::deque<float> pending = {0.0f, 0.0f};

        float step(float command)
        {
                pending.push_back(command);
                position += std::clamp(pending.front(), -100.0f, 100.0f) * rate * 0.05f;
                pending.pop_front();
                return position;
        }
};

TEST_F(CameraLink, AutotuneChecksTheZoomScaleTunesBothAxesAndStoresGainsAndModel)
{
        start({"--metadata", "no", "--product-number", "ZPT-7"}, "");
        position_poll_tick(nullptr);
        ASSERT_EQ(camera_connection_state(), CAMERA_AUTOTUNE);
        EXPECT_FALSE(ptz_control_tick(nullptr)) << "the autotune takes over";
        sent();

        autotune_tick(nullptr);
        EXPECT_EQ(sent(), Strings{"zelk-cgi/com/ptz.cgi?pan=0.000000&tilt=-45.000000&zoom=100.000000"});
        camera_position_update(50, 0, 0, 0, 0.5f, -45.5f); // at the edges; reporting zoom at half scale
        autotune_tick(nullptr);
        EXPECT_EQ(zoom_calibration_get().zoom_correction, 2.0f);
        EXPECT_EQ(persistent_get_zoom_correction(), 2.0);
        // Tuning starts once the camera is back in, at zoom 19 or below.
        camera_position_update(20, 0, 0, 0, 0.0f, -45.0f);
        for (int i = 0; i < 3; i++)
                autotune_tick(nullptr);
        EXPECT_EQ(sent(), Strings{"zelk-cgi/com/ptz.cgi?pan=0.000000&tilt=-45.000000&zoom=1.000000"});
        camera_position_update(19, 0, 0, 0, 0.0f, -45.0f);
        for (int i = 0; i < 3; i++)
                autotune_tick(nullptr);
        EXPECT_FALSE(sent().empty()) << "a relay step";

        Axis pan{0.0f, 1.2f}, tilt{-45.0f, 0.6f};
        float pan_command = 0.0f, tilt_command = 0.0f;
        int ticks = 0;
        while (autotune_tick(nullptr) && ticks++ < 2000) {
                clock_advance_us(50'000);
                for (const SimCameraRequest &r : camera->requests(next_request, &next_request))
                        sscanf(r.path.c_str(), "zelk-cgi/com/ptz.cgi?continuouspantiltmove=%f,%f", &pan_command,
                               &tilt_command);
                camera_position_update(10, -1, -1, -1, pan.step(pan_command), tilt.step(tilt_command));
        }
        ASSERT_LT(ticks, 2000);
        EXPECT_EQ(events->states().back(), "connected");
        g_autofree gchar *name = nullptr;
        EXPECT_TRUE(persistent_get_camera_name(&name));
        EXPECT_STREQ(name, "ZPT-7");
        double kp = 0, ki = 0, kd = 0;
        persistent_get_pan_pid(&kp, &ki, &kd);
        EXPECT_NE(kp, 1.0) << "tuned gains replace the defaults";
        EXPECT_GT(ki, 0.0);
        double tilt_kp = 0, tilt_ki = 0, tilt_kd = 0;
        persistent_get_tilt_pid(&tilt_kp, &tilt_ki, &tilt_kd);
        EXPECT_GT(tilt_kp, kp) << "the slower tilt axis keeps gains of its own";
        // They drive the controller from now on: the first step is kp times the error.
        float speeds[3];
        controller_set_target(10.0f, -35.0f, 1.0f);
        controller_update(0.0f, -45.0f, 1.0f);
        controller_get_speeds(&speeds[0], &speeds[1], &speeds[2]);
        EXPECT_EQ(std::pair(speeds[0], speeds[1]),
                  std::pair(static_cast<float>(kp) * 10, static_cast<float>(tilt_kp) * 10));
        controller_stop();
        const Strings last = sent();
        ASSERT_FALSE(last.empty());
        EXPECT_EQ(last.back(), "zelk-cgi/com/ptz.cgi?pan=0.000000&tilt=-3.600000&zoom=1.000000");
        zoom_calibration_set_correction(1.0f);
}

TEST_F(CameraLink, AutotuneGivesUpAfterThreeFailedAttemptsKeepingTheOldGainsAndName)
{
        persistent_set_pan_pid(0.5, 0.25, 0.0);
        start({"--metadata", "no"}, "old-model");
        position_poll_tick(nullptr);
        ASSERT_FALSE(ptz_control_tick(nullptr));
        LogCapture log;
        // The zoom check passes but the zoom never comes back; then the zoom is in neither band.
        camera_position_update(100, 0, 0, 0, -0.5f, -44.5f); // at the other edges
        int ticks = 0;
        while (autotune_tick(nullptr) && ticks++ < 1000)
                if (ticks == 104)
                        camera_position_update(70, 0, 0, 0, 0.0f, -45.0f);
        EXPECT_EQ(ticks, 104 + 2 * 103) << "each attempt: a move, the waits (101 to fail), the failure";
        EXPECT_EQ(log.matching("ERROR: Failed to go to autotune position").size(), 1u);
        EXPECT_EQ(log.matching("ERROR: Failed to go to autotune zoom check position").size(), 2u);
        EXPECT_EQ(events->states().back(), "connected");
        double kp = 0, ki = 0, kd = 0;
        persistent_get_pan_pid(&kp, &ki, &kd);
        EXPECT_EQ(kp, 0.5);
        g_autofree gchar *name = nullptr;
        persistent_get_camera_name(&name);
        EXPECT_STREQ(name, "old-model");
        EXPECT_EQ(sent().back(), "zelk-cgi/com/ptz.cgi?pan=0.000000&tilt=-3.600000&zoom=1.000000");

        // The next connection to the same untuned model has three attempts again.
        camera_request_reconnect();
        tick();
        position_poll_tick(nullptr);
        ASSERT_FALSE(ptz_control_tick(nullptr)) << "the autotune takes over again";
        camera_position_update(70, 0, 0, 0, 0.0f, -45.0f);
        log.clear();
        for (ticks = 0; autotune_tick(nullptr) && ticks < 1000; ticks++) {
        }
        EXPECT_EQ(log.matching("ERROR: Failed to go to autotune zoom check position").size(), 3u);
}

TEST_F(CameraLink, StreamFeedsPositionsUntilItDropsThenPollingReprobesAndStartsANewOne)
{
        clock_use_real(); // the stream and its fall-back run on the loop's real timers
        start({}, product);
        EXPECT_TRUE(iterate_until([] { return camera_position_source() == POSITION_STREAM; }))
                << "firmware 9.80 with metadata: the stream replaces the poll, which ends";
        GstElement *first = metadata_pipeline_current();
        ASSERT_NE(first, nullptr);
        g_object_add_weak_pointer(G_OBJECT(first), reinterpret_cast<gpointer *>(&first));

        camera->teleport(30.0, -12.0, 2500);
        EXPECT_TRUE(iterate_until([] {
                const CameraPosition p = camera_position_get();
                return std::fabs(p.pan - 30.0f) < 0.01f && p.zoom_position == 2500;
        })) << "positions over the stream; the camera sent " << camera->status().rtsp_packets
            << " packets and was asked " << testing::PrintToString(sent());
        const uint64_t polls = camera->requests().size();

        camera->set_fault("stream_drop", true);
        EXPECT_TRUE(iterate_until([&] { return events->states().back() == "disconnected"; }));
        camera->set_fault("stream_drop", false);
        EXPECT_TRUE(iterate_until([&] { return events->states().back() == "connected"; }));
        EXPECT_EQ(events->states(), (Strings{"connecting", "connected", "disconnected", "connected"}));
        EXPECT_GT(camera->requests().size(), polls) << "polled while the stream was down";
        EXPECT_EQ(first, nullptr) << "the new stream released the old pipeline";
        camera->teleport(-40.0, -5.0, 100);
        EXPECT_TRUE(iterate_until([] { return std::fabs(camera_position_get().pan + 40.0f) < 0.01f; }));
        settings_set_camera_connection("", "root", "pass");
        camera_request_reconnect();
        ptz_control_tick(nullptr);
        EXPECT_EQ(metadata_pipeline_current(), nullptr) << "no camera, no stream";
}

void post(GstElement *pipeline, bool error, GQuark domain, int code, const char *text)
{
        GError *e = g_error_new_literal(domain, code, text);
        GstMessage *m = error ? gst_message_new_error(GST_OBJECT(pipeline), e, "debug")
                              : gst_message_new_warning(GST_OBJECT(pipeline), e, "debug");
        gst_element_post_message(pipeline, m);
        g_error_free(e);
}

TEST_F(CameraLink, OnlyAReadErrorOfTheStreamHandsBackToTheConnectionManager)
{
        LogCapture log;
        static int handed_back = 0;
        ASSERT_EQ(metadata_pipeline_start("127.0.0.1", "1", "p", "u", "p", parse_ptz_metadata,
                                          [](void *) { handed_back++; }, nullptr),
                  0);
        // Its source fails to connect (port 1) and says so with an error of its own.
        GstElement *pipeline = metadata_pipeline_current();
        GstBus *bus = gst_element_get_bus(pipeline);
        g_object_add_weak_pointer(G_OBJECT(bus), reinterpret_cast<gpointer *>(&bus));
        gst_object_unref(bus);
        post(pipeline, true, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE, "write failed");
        post(pipeline, false, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ, "read failed");
        post(pipeline, true, GST_CORE_ERROR, GST_RESOURCE_ERROR_READ, "core failed");
        post(pipeline, true, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ, "read failed again");
        clock_use_real();
        EXPECT_TRUE(iterate_until([&] { return log.matching("ERROR: metadata-pipeline: ").size() >= 4; }));
        EXPECT_EQ(log.matching("ERROR: metadata-pipeline: ").size(), 4u);
        EXPECT_EQ(handed_back, 2) << "the read warning and the read error; " << testing::PrintToString(log.lines());
        metadata_pipeline_stop();
        EXPECT_EQ(metadata_pipeline_current(), nullptr);
        EXPECT_TRUE(iterate_until([&] { return !bus; }, 5.0)) << "the bus goes with the pipeline";
}

} // namespace
