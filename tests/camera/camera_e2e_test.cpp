// The real service against the simulated unit, inside the rig's sandbox: the simulated
// radar walks a person across at 20 m and the simulated camera is at 127.0.0.1.
#include "private_bus.h"
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "sim_unit.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <memory>

namespace {

using Strings = std::vector<std::string>;

class CameraEndToEnd : public ::testing::Test {
protected:
        // The camera keeps the walking person in the middle of its view.
        bool follows(SimCameraProcess &camera, const std::string &when)
        {
                return camera.wait_for(
                        [&](const SimCameraStatus &s) { return std::fabs(s.pan - unit.walker_azimuth()) < 3.0; },
                        "the camera on the person " + when, 20.0);
        }

        // Stops the service and checks that the whole teardown ran and the camera was let go.
        void stop_fully(ServiceProcess &service)
        {
                service.send_signal(SIGTERM);
                EXPECT_EQ(service.wait_exit(), 0);
                EXPECT_EQ(service.matching("Tearing down: ").size(), 9u);
                EXPECT_EQ(service.events().states().back(), "disconnected");
                EXPECT_TRUE(service.matching("CRITICAL").empty());
        }

        SimUnit unit{"walk_20m.json"};
};

TEST_F(CameraEndToEnd, AutotuneCutShortSavesNothingThenTunesOnceFollowsAndConnectsStraightAwayNextTime)
{
        SimCameraProcess camera;
        unit.configure("pass");
        // SIGTERM in the middle of the autotune's relay: the camera stopped, no gains or model kept.
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune"}));
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return std::fabs(s.pan_speed) > 1.0; },
                                    "the relay's moves", 20.0));
        stop_fully(*service);
        EXPECT_TRUE(camera.wait_for(
                [](const SimCameraStatus &s) { return s.pan_speed == 0.0 && s.tilt_speed == 0.0 && !s.moving; },
                "the camera stopped"));
        const std::string conf = unit.conf_text();
        EXPECT_NE(conf.find("pan_kp=1\npan_ki=0\npan_kd=0\ntilt_kp=1\ntilt_ki=0\ntilt_kd=0\n"), std::string::npos)
                << "gains stored as tuned:\n" << conf;
        EXPECT_EQ(conf.find("\nname="), conf.find("\nname=\n")) << "no model or an empty one:\n" << conf;

        service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune", "connected"}, 90.0));
        // Turned away (which ends the autotune's last move): only scenes bring it back.
        camera.teleport(unit.walker_azimuth() + 90.0, 0.0, 1.0);
        EXPECT_TRUE(follows(camera, "after the autotune"));
        stop_fully(*service);

        const uint64_t connections = camera.status().http_connections;
        service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
        EXPECT_EQ(service->events().states(), (Strings{"connecting", "connected"})) << "no second autotune";
        stop_fully(*service);
        EXPECT_EQ(camera.status().http_connections, connections + 1) << "one kept-alive connection per run";
}

TEST_F(CameraEndToEnd, FollowsOnceSwitchedOnOverDbusAndAfterACameraRestartWithoutAnAutotune)
{
        auto camera = std::make_unique<SimCameraProcess>(Strings{"--pan", "120"});
        // With tracking off the service takes no scenes until the operator switches it on.
        unit.configure("pass", "name=ZPT-6100\n", false);
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
        g_autoptr(GDBusConnection) bus = private_bus_connect(service->bus_address());
        g_autoptr(GVariant) reply = private_bus_call(bus, "com.zelk.Trelvo1", "/com/zelk/Trelvo1", "com.zelk.Trelvo1",
                                                     "SetTrackingEnabled", g_variant_new("(b)", TRUE));
        ASSERT_TRUE(follows(*camera, "once tracking is switched on over D-Bus"));

        // Killed: the service reports the loss and waits; started anew, turned away, it is
        // found again by the polls, with the model it knows, and followed.
        camera.reset();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected", "disconnected"}));
        camera = std::make_unique<SimCameraProcess>(Strings{"--pan", "120"});
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected", "disconnected", "connected"}));
        EXPECT_TRUE(follows(*camera, "after the restart"));
        EXPECT_EQ(camera->status().rtsp_clients, 1u);
        EXPECT_EQ(service->events().states(), (Strings{"connecting", "connected", "disconnected", "connected"}))
                << "a known model is not tuned again";
        stop_fully(*service);
}

} // namespace
