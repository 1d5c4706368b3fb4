// The real service against the simulated unit, inside the rig's sandbox: the simulated
// radar walks a person across at 20 m, the simulated camera (HTTP, HTTPS, RTSP) is at
// 127.0.0.1, and the service shares their network with a configuration of its own.
#include "credentials.h"
#include "service_process.h"
#include "sim_camera_process.h"
#include "sim_events_process.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <memory>

namespace {

using Strings = std::vector<std::string>;

class CameraEndToEnd : public ::testing::Test {
protected:
        void SetUp() override
        {
                gchar *dir = g_dir_make_tmp("trelvo-camera-e2e-XXXXXX", nullptr);
                directory = dir;
                g_free(dir);
                radar = std::make_unique<ChildProcess>(std::vector<std::string>{
                        SIM_RADAR, "--socket", directory + "/scene.sock", SCENARIOS "/walk_20m.json"});
                ASSERT_TRUE(radar->wait_for_line("sim-radar: serving"));
        }
        void TearDown() override
        {
                radar.reset();
                g_remove((directory + "/scene.sock").c_str());
                g_remove((directory + "/trelvo.conf").c_str());
                g_rmdir(directory.c_str());
        }

        // A configuration with the camera and tracking on; the rest as the service defaults it.
        void configure(const char *password)
        {
                gchar *pass = encrypt_password(password);
                const std::string text = std::string("[camera]\nip=127.0.0.1\nuser=root\npass=") + pass +
                                         "\n\n[tracking]\nenabled=true\n";
                g_free(pass);
                ASSERT_TRUE(g_file_set_contents((directory + "/trelvo.conf").c_str(), text.c_str(), -1, nullptr));
        }

        std::unique_ptr<ServiceProcess> start_service()
        {
                ServiceOptions options;
                options.conf_dir = directory;
                options.keep_net = true;
                options.environment = {"RADAR_SCENE_PROVIDER_SOCKET=" + directory + "/scene.sock"};
                auto service = std::make_unique<ServiceProcess>(options);
                EXPECT_TRUE(service->wait_for_line("DEBUG: Running"));
                return service;
        }

        void stop(ServiceProcess &service)
        {
                service.send_signal(SIGTERM);
                EXPECT_EQ(service.wait_exit(), 0);
                EXPECT_EQ(service.events().states().back(), "disconnected");
                EXPECT_TRUE(service.matching("CRITICAL").empty());
        }

        std::string conf_text()
        {
                gchar *text = nullptr;
                g_file_get_contents((directory + "/trelvo.conf").c_str(), &text, nullptr, nullptr);
                std::string copy(text ? text : "");
                g_free(text);
                return copy;
        }

        // The walking person's azimuth now, degrees to the right, from when it appeared.
        double person_azimuth()
        {
                const Strings appeared = radar->matching("sim-radar: object 1 appears at ");
                if (appeared.empty())
                        return NAN;
                const int64_t since = std::stoll(appeared.front().substr(appeared.front().rfind(' ') + 1));
                const double walked = 1.4 * static_cast<double>(g_get_monotonic_time() - since) / 1e6;
                const double leg = std::fmod(walked, 40.0);
                const double x = leg < 20.0 ? -10.0 + leg : 10.0 - (leg - 20.0);
                return std::atan2(x, 20.0) * 180.0 / M_PI;
        }

        std::string directory;
        std::unique_ptr<ChildProcess> radar;
};

TEST_F(CameraEndToEnd, AutotunesANewModelOnceFollowsThePersonAndConnectsStraightAwayNextTime)
{
        SimCameraProcess camera;
        configure("pass");
        {
                std::unique_ptr<ServiceProcess> service = start_service();
                ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune", "connected"}, 90.0));
                const std::string conf = conf_text();
                EXPECT_NE(conf.find("name=ZPT-6100\n"), std::string::npos) << conf;
                EXPECT_EQ(conf.find("pan_kp=1\n"), std::string::npos) << "tuned gains stored: " << conf;

                // Following: the camera's pan comes within a few degrees of the walking person.
                EXPECT_TRUE(camera.wait_for(
                        [&](const SimCameraStatus &s) { return std::fabs(s.pan - person_azimuth()) < 3.0; },
                        "the camera on the person", 20.0));
                EXPECT_GT(camera.status().rtsp_clients, 0u) << "positions over the stream";
                stop(*service);
        }
        const uint64_t connections = camera.status().http_connections;
        {
                std::unique_ptr<ServiceProcess> service = start_service();
                ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
                EXPECT_EQ(service->events().states(), (Strings{"connecting", "connected"})) << "no second autotune";
                stop(*service);
        }
        EXPECT_EQ(camera.status().http_connections, connections + 1) << "one kept-alive connection per run";
}

TEST_F(CameraEndToEnd, WrongCredentialsEndInConnectFailedAndNothingMore)
{
        SimCameraProcess camera;
        configure("not the password");
        std::unique_ptr<ServiceProcess> service = start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connect_failed"}));
        // Polls go on (401 each time); no state changes.
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return s.requests >= 12; }, "six more polls"));
        EXPECT_EQ(service->events().states(), (Strings{"connecting", "connect_failed"}));
        stop(*service);
}

TEST_F(CameraEndToEnd, ACameraThatStopsAnsweringNeverStopsTheService)
{
        SimCameraProcess camera;
        configure("pass");
        std::unique_ptr<ServiceProcess> service = start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "autotune"}));
        camera.set_fault("no_answer", true);
        // Every request is given up after its budget; the loop still serves the quit signal.
        service->send_signal(SIGTERM);
        EXPECT_EQ(service->wait_exit(30.0), 0);
}

} // namespace
