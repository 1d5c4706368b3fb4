// The real service against the simulated unit, inside the rig's sandbox: the simulated
// radar walks a person across at 20 m, the simulated camera (HTTP, HTTPS, RTSP) is at
// 127.0.0.1, and the service shares their network with a configuration of its own.
#include "sim_unit.h"
#include "sim_camera_process.h"
#include "sim_events_process.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <memory>

namespace {

using Strings = std::vector<std::string>;

class CameraEndToEnd : public ::testing::Test {
protected:
        void stop(ServiceProcess &service)
        {
                service.send_signal(SIGTERM);
                EXPECT_EQ(service.wait_exit(), 0);
                EXPECT_EQ(service.events().states().back(), "disconnected");
                EXPECT_TRUE(service.matching("CRITICAL").empty());
        }

        SimUnit unit{"walk_20m.json"};
};

TEST_F(CameraEndToEnd, AutotunesANewModelOnceFollowsThePersonAndConnectsStraightAwayNextTime)
{
        SimCameraProcess camera;
        unit.configure("pass");
        {
                std::unique_ptr<ServiceProcess> service = unit.start_service();
                ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune", "connected"}, 90.0));

                // Following: the camera's pan comes within a few degrees of the walking person.
                EXPECT_TRUE(camera.wait_for(
                        [&](const SimCameraStatus &s) { return std::fabs(s.pan - unit.walker_azimuth()) < 3.0; },
                        "the camera on the person", 20.0));
                EXPECT_GT(camera.status().rtsp_clients, 0u) << "positions over the stream";
                stop(*service);
        }
        const uint64_t connections = camera.status().http_connections;
        {
                // Started with tracking off, the service takes no scenes until the operator
                // switches it on over the CGI.
                std::string conf = unit.conf_text();
                const size_t enabled = conf.find("\nenabled=true\n");
                ASSERT_NE(enabled, std::string::npos) << conf;
                unit.write_conf(conf.replace(enabled, 14, "\nenabled=false\n"));
                std::unique_ptr<ServiceProcess> service = unit.start_service();
                ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
                EXPECT_EQ(service->events().states(), (Strings{"connecting", "connected"})) << "no second autotune";
                camera.teleport(unit.walker_azimuth() + 90.0, 0.0, 1.0);
                EXPECT_NE(service->cgi(R"({"apiVersion": "1.1", "method": "setTrackingEnabled", "params": {"value": true}})")
                                  .body.find("\"data\""),
                          std::string::npos);
                EXPECT_TRUE(camera.wait_for(
                        [&](const SimCameraStatus &s) { return std::fabs(s.pan - unit.walker_azimuth()) < 3.0; },
                        "the camera on the person once tracking is on", 20.0));
                stop(*service);
        }
        EXPECT_EQ(camera.status().http_connections, connections + 1) << "one kept-alive connection per run";
}

TEST_F(CameraEndToEnd, ACameraThatStopsAnsweringNeverStopsTheService)
{
        SimCameraProcess camera;
        unit.configure("pass");
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune"}));
        camera.set_fault("no_answer", true);
        // Every request is given up after its budget; the loop still serves the quit signal.
        service->send_signal(SIGTERM);
        EXPECT_EQ(service->wait_exit(30.0), 0);
}

} // namespace
