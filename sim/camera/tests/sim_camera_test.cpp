// The simulated camera: its mechanics and command parsing stepped directly, and the
// program itself on the real ports (this test runs inside the rig's sandbox) with libcurl
// as the client.
#include "camera_params.h"
#include "ptz_dynamics.h"
#include "sim_camera_process.h"

#include <curl/curl.h>
#include <libsoup/soup.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>

namespace {

// ---- mechanics and parsing, stepped

void step_for(PtzState *state, double seconds)
{
        for (int i = 0; i < static_cast<int>(std::lround(seconds / 0.01)); i++)
                ptz_dynamics_step(state, 0.01);
}

TEST(PtzDynamics, ContinuousMovesFollowTheSpeedWithLagAndStopDead)
{
        PtzState state;
        ptz_dynamics_teleport(&state, 170.0, 10.0, 9000.0);
        ptz_dynamics_set_speed(&state.pan, 50.0);
        ptz_dynamics_set_speed(&state.tilt, 200.0); // clamped to 100
        ptz_dynamics_set_speed(&state.zoom, 100.0);
        ptz_dynamics_step(&state, ptz_time_constant); // one time constant: 63 % of the speed
        EXPECT_NEAR(state.pan.velocity, 0.632 * 0.5 * ptz_pan_max_speed, 0.5);
        step_for(&state, 1.0);
        EXPECT_NEAR(state.pan.velocity, 0.5 * ptz_pan_max_speed, 0.1);
        EXPECT_LT(state.pan.position, -100.0); // wrapped past 180
        EXPECT_EQ(state.tilt.position, ptz_tilt_max); // against the end stops
        EXPECT_EQ(state.zoom.position, ptz_zoom_max);
        EXPECT_EQ(state.tilt.velocity, 0.0);
        EXPECT_TRUE(ptz_dynamics_moving(state));

        for (PtzChannel *channel : {&state.pan, &state.tilt, &state.zoom})
                ptz_dynamics_set_speed(channel, 0.0);
        step_for(&state, 1.0);
        const double stopped_at = state.pan.position;
        EXPECT_FALSE(ptz_dynamics_moving(state));
        ptz_dynamics_step(&state, 0.5);
        EXPECT_EQ(state.pan.position, stopped_at); // a stopped camera reports the same position

        ptz_dynamics_set_speed(&state.tilt, -100.0);
        step_for(&state, 0.5);
        EXPECT_LT(state.tilt.velocity, -0.9 * ptz_tilt_max_speed);
}

TEST(PtzDynamics, AbsoluteMovesTakeTheShortWayAndArriveWithoutOvershoot)
{
        PtzState state;
        ptz_dynamics_teleport(&state, 170.0, 0.0, 1.0);
        ptz_dynamics_seek_pan(&state, -170.0); // 20 degrees on through 180
        ptz_dynamics_seek_tilt(&state, -45.0);
        ptz_dynamics_seek_zoom(&state, 100.0);
        double lowest_tilt = 0.0;
        double seconds = 0.0;
        while (ptz_dynamics_moving(state) && seconds < 5.0) {
                ptz_dynamics_step(&state, 0.01);
                seconds += 0.01;
                lowest_tilt = std::min(lowest_tilt, state.tilt.position);
                ASSERT_TRUE(state.pan.position >= 170.0 || state.pan.position <= -170.0) << state.pan.position;
        }
        EXPECT_LT(seconds, 2.0);
        EXPECT_EQ(state.pan.position, -170.0);
        EXPECT_EQ(state.tilt.position, -45.0);
        EXPECT_EQ(state.zoom.position, 100.0);
        EXPECT_EQ(lowest_tilt, -45.0);

        // A late timer is cut into small steps: still no overshoot.
        ptz_dynamics_seek_tilt(&state, 20.0);
        ptz_dynamics_step(&state, 3.0);
        EXPECT_EQ(state.tilt.position, 20.0);
        EXPECT_FALSE(ptz_dynamics_moving(state));
}

TEST(CameraParams, CommandsAreReadLenientlyAndMalformedOnesChangeNothing)
{
        struct Case {
                const char *query;
                bool accepted;
        };
        const Case cases[] = {
                {"query=position", true},
                {"query=limits", false},
                {"move=home", true},
                {"move=left", false},
                {"continuouspantiltmove=10.5,-3&continuouszoommove=0", true},
                {"continuouspantiltmove= 1e1 ,+2", true},
                {"continuouspantiltmove=10", false},
                {"continuouspantiltmove=1,2,3", false},
                {"continuouszoommove=abc", false},
                {"pan=10x&tilt=0&zoom=1", false},
                {"pan=nan", false},
                {"pan=0.000000&tilt=-45.000000&zoom=100.000000", true},
                {"tilt=5", true},
                {"pan=1&continuouszoommove=1", false},
                {"camera=1", false},
        };
        for (const Case &c : cases) {
                GHashTable *query = soup_form_decode(c.query);
                PtzCommand command;
                std::string error;
                EXPECT_EQ(simcam_params_parse_ptz(query, &command, &error), c.accepted) << c.query;
                EXPECT_EQ(error.empty(), c.accepted) << c.query;
                g_hash_table_unref(query);
        }

        SimCamera camera;
        camera.home_pan = 30.0;
        PtzCommand command;
        command.pan_speed = 150.0;
        command.tilt_speed = -20.0;
        simcam_params_apply_ptz(&camera, command);
        EXPECT_EQ(camera.ptz.pan.speed_command, 100.0);
        EXPECT_EQ(camera.ptz.tilt.speed_command, -20.0);
        PtzCommand home;
        home.kind = PtzCommand::Kind::home;
        simcam_params_apply_ptz(&camera, home);
        EXPECT_TRUE(camera.ptz.pan.seeking);
        EXPECT_EQ(camera.ptz.pan.target, 30.0);
        EXPECT_EQ(camera.ptz.zoom.target, 1.0);
}

TEST(CameraParams, TheStreamIsOfferedByTheRuleOfTheProbe)
{
        const std::pair<const char *, bool> firmwares[] = {
                {"5.55.1.3", true}, {"5.55.1.2", false}, {"5.55.2.0", true}, {"5.56", true},  {"6.0", true},
                {"6", false},       {"4.99.9.9", false}, {"cvp1.2", true},   {"CFP-3", true}, {"beta", false},
        };
        CameraIdentity identity;
        for (const auto &[firmware, offered] : firmwares) {
                identity.firmware = firmware;
                EXPECT_EQ(sim_camera_offers_stream(identity), offered) << firmware;
        }
        identity.metadata = false;
        EXPECT_FALSE(sim_camera_offers_stream(identity));
}

// ---- the program on its ports

struct Reply {
        CURLcode result = CURLE_OK;
        long status = 0;
        std::string body;
        std::string location;
};

size_t collect(char *data, size_t size, size_t count, void *user)
{
        static_cast<std::string *>(user)->append(data, size * count);
        return size * count;
}

// One GET on handle (kept between calls, so its connection is reused).
Reply get(CURL *curl, const std::string &url, long auth = CURLAUTH_ANY, const char *password = "pass",
          long timeout_ms = 5000, const char *user = "root")
{
        Reply reply;
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, auth);
        curl_easy_setopt(curl, CURLOPT_USERNAME, user);
        curl_easy_setopt(curl, CURLOPT_PASSWORD, password);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeout_ms);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
        reply.result = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
        curl_header *location = nullptr;
        if (curl_easy_header(curl, "Location", 0, CURLH_HEADER, -1, &location) == CURLHE_OK)
                reply.location = location->value;
        return reply;
}

struct Client {
        CURL *curl = curl_easy_init();
        ~Client() { curl_easy_cleanup(curl); }
        Reply operator()(const std::string &path, long auth = CURLAUTH_ANY, const char *password = "pass")
        {
                return get(curl, "http://127.0.0.1:80/" + path, auth, password);
        }
};

const std::string position = "zelk-cgi/com/ptz.cgi?query=position";

double reported(const std::string &body, const char *key)
{
        const size_t at = body.find(std::string(key) + "=");
        return at == std::string::npos ? std::nan("") : std::strtod(body.c_str() + at + strlen(key) + 1, nullptr);
}

TEST(SimCamera, ParameterListsCarryTheConfiguredValues)
{
        SimCameraProcess camera({"--firmware", "5.55.1.2", "--metadata", "no", "--min-field-angle", "30",
                                 "--max-field-angle", "500", "--product-number", "ZPT-9000-E"});
        ASSERT_TRUE(camera.ready());
        Client client;
        Reply reply = client("zelk-cgi/param.cgi?action=list&group=Properties");
        EXPECT_EQ(reply.status, 200);
        EXPECT_NE(reply.body.find("Properties.Firmware.Version=5.55.1.2\n"), std::string::npos);
        EXPECT_NE(reply.body.find("Properties.API.Metadata.Metadata=no\n"), std::string::npos);
        EXPECT_EQ(reply.body.find("Brand."), std::string::npos);
        reply = client("zelk-cgi/param.cgi?action=list&group=Ptz.Limit.L1");
        EXPECT_NE(reply.body.find("PTZ.Limit.L1.MinFieldAngle=30\n"), std::string::npos);
        EXPECT_NE(reply.body.find("PTZ.Limit.L1.MaxFieldAngle=500\n"), std::string::npos);
        reply = client("zelk-cgi/param.cgi?action=list&group=Brand");
        EXPECT_NE(reply.body.find("Brand.ProdNbr=ZPT-9000-E\n"), std::string::npos);
        EXPECT_NE(reply.body.find("Brand.ProdType=PTZ Network Camera\n"), std::string::npos);

        ASSERT_TRUE(camera.set({{"firmware", "9.80.1.0"}, {"metadata", "yes"}, {"product_number", "ZPT-6100"}}));
        reply = client("zelk-cgi/param.cgi?action=list&group=Properties,Brand");
        EXPECT_NE(reply.body.find("Properties.Firmware.Version=9.80.1.0\n"), std::string::npos);
        EXPECT_NE(reply.body.find("Properties.API.Metadata.Metadata=yes\n"), std::string::npos);
        EXPECT_NE(reply.body.find("Brand.ProdNbr=ZPT-6100\n"), std::string::npos);
        EXPECT_TRUE(camera.status().stream_offered);

        reply = client("zelk-cgi/param.cgi?action=list&group=Network");
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.body.rfind("# Error:", 0), 0U);
        EXPECT_EQ(client("zelk-cgi/other.cgi").status, 404);
        std::string body;
        EXPECT_EQ(camera.control("POST", "/set?product_number=a%20b", &body), 400); // a bad value changes nothing
        EXPECT_EQ(camera.control("POST", "/set?firmware=1.0&min_field_angle=700", &body), 400);
        EXPECT_EQ(camera.control("POST", "/set?firmware=", &body), 400);
        EXPECT_EQ(camera.status().firmware, "9.80.1.0");
        EXPECT_EQ(camera.stop(), 0);
}

TEST(SimCamera, MovesChangeTheReportedPosition)
{
        SimCameraProcess camera({"--pan", "10", "--tilt", "-10", "--zoom", "500"});
        ASSERT_TRUE(camera.ready());
        Client client;
        EXPECT_EQ(client("zelk-cgi/com/ptz.cgi?continuouspantiltmove=40.000000,-30.000000&continuouszoommove=20.000000")
                          .status,
                  200);
        ASSERT_TRUE(camera.wait_for(
                [](const SimCameraStatus &s) { return s.pan > 20.0 && s.tilt < -15.0 && s.zoom > 600.0; }, "move"));
        Reply reply = client(position);
        EXPECT_GT(reported(reply.body, "pan"), 20.0);
        EXPECT_LT(reported(reply.body, "tilt"), -15.0);
        EXPECT_GT(reported(reply.body, "zoom"), 600.0);

        EXPECT_EQ(client("zelk-cgi/com/ptz.cgi?continuouspantiltmove=0,0&continuouszoommove=0").status, 200);
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return !s.moving; }, "stop"));
        const std::string stopped = client(position).body;
        EXPECT_EQ(client(position).body, stopped);

        EXPECT_EQ(client("zelk-cgi/com/ptz.cgi?pan=0.000000&tilt=-45.000000&zoom=100.000000").status, 200);
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return !s.moving; }, "arrival", 5.0));
        reply = client(position);
        EXPECT_NEAR(reported(reply.body, "pan"), 0.0, 0.01);
        EXPECT_NEAR(reported(reply.body, "tilt"), -45.0, 0.01);
        EXPECT_EQ(reported(reply.body, "zoom"), 100.0);

        ASSERT_TRUE(camera.set_fault("zoom_half_scale", true));
        EXPECT_EQ(reported(client(position).body, "zoom"), 50.0);

        EXPECT_EQ(client("zelk-cgi/com/ptz.cgi?continuouspantiltmove=50,x").status, 400);
        EXPECT_FALSE(camera.status().moving);

        ASSERT_TRUE(camera.set_home(90.0, -20.0, 1.0));
        EXPECT_EQ(client("zelk-cgi/com/ptz.cgi?move=home").status, 200);
        ASSERT_TRUE(camera.wait_for([](const SimCameraStatus &s) { return !s.moving && s.pan == 90.0; }, "home", 5.0));
        EXPECT_EQ(camera.stop(), 0);
}

} // namespace
