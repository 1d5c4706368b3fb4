// The HTTP client against the simulated camera, inside the rig's sandbox.
#include "http_client.h"
#include "log_capture.h"
#include "sim_camera_process.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

namespace {

constexpr const char *position = "zelk-cgi/com/ptz.cgi?query=position";
constexpr const char *stop = "zelk-cgi/com/ptz.cgi?continuouspantiltmove=0.000000,0.000000&continuouszoommove=0.000000";

// The requests as "scheme status", without the 401 challenges.
Lines schemes_of(SimCameraProcess &camera)
{
        Lines schemes;
        for (const SimCameraRequest &r : camera.requests())
                if (r.status != 401)
                        schemes.push_back(r.scheme + " " + std::to_string(r.status));
        return schemes;
}

void connect_to(const char *address)
{
        http_cleanup(); // a fresh handle: a fresh connection
        ASSERT_EQ(http_setup(address, "80", "443", "root", "pass"), 0);
}

// First, so that the client is fresh.
TEST(HttpClient, WarnsOnceWithoutAnAddressAndReachesIpv6AndLinkLocalCameras)
{
        LogCapture log;
        connect_to("");
        for (int i = 0; i < 3; i++)
                EXPECT_EQ(http_request(position, nullptr), 0);
        EXPECT_EQ(log.lines(), Lines{"WARNING: http: No address"});
        // Nothing listens on either scheme: libcurl's reason, once.
        connect_to("127.0.0.1");
        EXPECT_EQ(http_request(position, nullptr), 0);
        EXPECT_EQ(log.matching("curl"), Lines{"WARNING: curl perform: Couldn't connect to server"});

        // Without eth0 the set-up fails, and leaves no half-made handle to the next one.
        http_cleanup();
        ASSERT_EQ(std::system("ip link set eth0 down name eth9"), 0);
        EXPECT_EQ(http_setup("fe80::1", "80", "443", "root", "pass"), -1);
        ASSERT_EQ(std::system("ip link set eth9 name eth0 up"), 0);
        EXPECT_EQ(log.matching("ERROR"), Lines{"ERROR: Get index for interface eth0: No such device"});

        // fe80::1 only means something on an interface: the client scopes it to eth0.
        ASSERT_EQ(std::system("ip -6 addr add fe80::1/64 dev eth0 nodad"), 0);
        SimCameraProcess loopback({"--address", "::1"});
        SimCameraProcess link_local({"--address", "fe80::1", "--interface", "eth0"});
        for (const char *address : {"fe80::1", "::1"}) {
                ASSERT_EQ(http_setup(address, "80", "443", "root", "pass"), 0);
                EXPECT_EQ(http_request(position, nullptr), 200) << address;
        }
        EXPECT_EQ(schemes_of(loopback), Lines{"http 200"});
        EXPECT_EQ(schemes_of(link_local), Lines{"http 200"});
        connect_to("");
        EXPECT_EQ(http_request(position, nullptr), 0);
        EXPECT_EQ(log.matching("No address").size(), 2u) << "warned again after a request had an address";
}

TEST(HttpClient, KeepsOneConnectionForEveryRequestWithEitherAuthSchemeAndHandsOverOnlyNonEmptyBodies)
{
        for (const char *auth : {"basic", "digest"}) {
                SimCameraProcess camera({"--auth", auth});
                connect_to("127.0.0.1");
                for (int i = 0; i < 300; i++) {
                        gchar *body = nullptr;
                        ASSERT_EQ(http_request(position, &body), 200) << auth;
                        ASSERT_TRUE(body && g_str_has_prefix(body, "pan=")) << (body ? body : "(none)");
                        g_free(body);
                }
                gchar *untouched = nullptr;
                EXPECT_EQ(http_request(stop, &untouched) / 100, 2);
                EXPECT_EQ(untouched, nullptr);
                const SimCameraStatus status = camera.status();
                EXPECT_EQ(status.http_connections, 1u) << auth;
                EXPECT_EQ(status.https_connections, 0u);
        }
}

TEST(HttpClient, SwitchesToHttpsOnRefusalOrRedirectAndStaysThereAndBoundsRedirectLoops)
{
        LogCapture log;
        const std::pair<const char *, Lines> switches[] = {
                {"https_only", {"https 200", "https 200"}}, {"redirect_https", {"http 302", "https 200", "https 200"}}};
        for (const auto &[fault, schemes] : switches) {
                SimCameraProcess camera({"--fault", fault});
                connect_to("127.0.0.1");
                gchar *body = nullptr;
                EXPECT_EQ(http_request(position, &body), 200);
                EXPECT_EQ(taken(body).rfind("pan=", 0), 0u) << "the redirect's page is not part of the reply";
                EXPECT_EQ(http_request(position, nullptr), 200);
                EXPECT_EQ(schemes_of(camera), schemes);
                EXPECT_EQ(camera.status().https_connections, 1u) << fault;
        }
        {
                // Wrong credentials: the status, no retry beyond libcurl's own challenge, no log.
                SimCameraProcess camera({"--fault", "wrong_credentials"});
                connect_to("127.0.0.1");
                EXPECT_EQ(http_request(position, nullptr), 401);
                EXPECT_LE(camera.requests().size(), 2u);
        }
        EXPECT_TRUE(log.lines().empty());
        SimCameraProcess camera({"--fault", "redirect_loop"});
        connect_to("127.0.0.1");
        EXPECT_EQ(http_request(position, nullptr), 302);
        EXPECT_EQ(schemes_of(camera), (Lines{"http 302", "https 302", "http 302"})) << "each names its scheme";
        EXPECT_EQ(log.lines(), Lines{"WARNING: http: More than 2 redirects for " + std::string(position)});
        // Once redirected, a refused connection ends the request: no switch back to plain HTTP.
        ASSERT_EQ(http_setup("127.0.0.1", "80", "1", "root", "pass"), 0);
        EXPECT_EQ(http_request(position, nullptr), 0);
}

TEST(HttpClient, EachPassGetsWhatIsLeftOfTheBudgetAndNeverNoLimit)
{
        constexpr int64_t start = 5'000'000;
        EXPECT_EQ(http_pass_timeout_ms(start, start), http_request_budget_ms);
        EXPECT_EQ(http_pass_timeout_ms(start, start + 2'500'900), http_request_budget_ms - 2500);
        EXPECT_EQ(http_pass_timeout_ms(start, start + http_request_budget_ms * 1000), 1);
        EXPECT_EQ(http_pass_timeout_ms(start, start + 60'000'000), 1);
}

// A reply past the body limit is no reply either, but a warning; nothing of it is kept.
TEST(HttpClient, GivesUpOnASilentCameraWithinItsBudgetQuietlyAndOnAHugeReplyWithAWarning)
{
        LogCapture log;
        SimCameraProcess camera({"--fault", "no_answer"});
        connect_to("127.0.0.1");
        const auto started = std::chrono::steady_clock::now();
        EXPECT_EQ(http_request(position, nullptr), 0);
        const auto held_ms =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
        EXPECT_LE(held_ms.count(), http_request_budget_ms + 500);
        EXPECT_TRUE(log.lines().empty());
        // The camera answers again: the next request goes through, over plain HTTP first.
        camera.set_fault("no_answer", false);
        EXPECT_EQ(http_request(position, nullptr), 200);
        EXPECT_EQ(schemes_of(camera).back(), "http 200");
        camera.set_fault("huge_reply", true);
        gchar *body = nullptr;
        EXPECT_EQ(http_request(position, &body), 0);
        EXPECT_EQ(body, nullptr);
        EXPECT_EQ(log.lines(), Lines{"WARNING: curl perform: Failed writing received data to disk/application"});
}

} // namespace
