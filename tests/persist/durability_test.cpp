// The real service takes a stream of CGI changes and is killed at a seeded random moment;
// TRELVO_DURABILITY_SEED=N replays another sequence of kills.
#include "private_bus.h"
#include "service_process.h"
#include "temp_dir.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <random>
#include <thread>

namespace {

constexpr int kills = 20;

// "group/key" -> its text in the file. Numbers are whole, so their text is exact.
using Values = std::map<std::string, std::string>;

struct Change {
        std::string body;
        Values values;
};

// Change n of a run: three setters in turn (the connection is three saves), each value
// distinct from that setter's last.
Change change(int n)
{
        const int v = n / 3;
        const std::string number = std::to_string(v % 300 + 1);
        if (n % 3 == 0)
                return {cgi_call_body("setCameraPanOffset", ("{\"value\": -" + number + "}").c_str()),
                        {{"camera/pan_offset", "-" + number}}};
        if (n % 3 == 1)
                return {cgi_call_body("setReturnToHomeTimeout", ("{\"value\": " + number + "}").c_str()),
                        {{"tracking/return_to_home_timeout", number}}};
        const std::string ip = "10.0." + std::to_string(v / 250 % 250) + "." + std::to_string(v % 250 + 1);
        return {cgi_call_body("setCameraConnection", ("{\"ip\": \"" + ip + "\", \"user\": \"op" + number +
                                                      "\", \"pass\": \"pw\"}").c_str()),
                {{"camera/ip", ip}, {"camera/user", "op" + number}}};
}

TEST(Durability, EveryAnsweredChangeSurvivesSigkillAtRandomMoments)
{
        const char *seed_text = g_getenv("TRELVO_DURABILITY_SEED");
        const unsigned seed = seed_text ? static_cast<unsigned>(g_ascii_strtoull(seed_text, nullptr, 10)) : 20240612u;
        SCOPED_TRACE("TRELVO_DURABILITY_SEED=" + std::to_string(seed));
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> answers_before(0, 12);
        std::uniform_int_distribution<int> extra_wait_us(0, 4000);

        TempDir dir("trelvo-durability");
        const std::string path = dir.file("trelvo.conf");
        // Every answered change applied; the change sent but not answered may or may not be in.
        Values saved = {{"camera/pan_offset", "0"}, {"camera/ip", ""}, {"camera/user", ""},
                        {"tracking/return_to_home_timeout", "25"}};
        int next_change = 0;
        // One bus for every start: the zone service and the event producer are not needed.
        PrivateBus bus;
        const ServiceOptions options{
                .conf_dir = dir.path(), .debug_log = false, .bus = ServiceBus::existing, .bus_address = bus.address()};
        for (int kill = 0; kill <= kills && !HasFailure(); kill++) {
                auto service = std::make_unique<ServiceProcess>(options);
                ASSERT_TRUE(service->wait_for_line("Setting zoom degree")) << "kill " << kill;
                ASSERT_TRUE(service->matching("Failed to read configuration").empty()) << "kill " << kill;
                if (kill == kills)
                        break;
                // The moment itself: after some answers, anywhere in the next request or between two.
                const int wanted = answers_before(random);
                std::thread killer;
                Values in_flight;
                for (int answered = 0;; next_change++, answered++) {
                        if (answered == wanted)
                                killer = std::thread([&service, wait = extra_wait_us(random)] {
                                        std::this_thread::sleep_for(std::chrono::microseconds(wait));
                                        service->send_signal(SIGKILL);
                                });
                        const Change c = change(next_change);
                        in_flight = c.values;
                        const HttpAnswer answer = service->cgi(c.body);
                        if (!json_object_get(answer.json.get(), "data")) {
                                EXPECT_EQ(json_object_get(answer.json.get(), "error"), nullptr) << c.body << ": " << answer.body;
                                break;
                        }
                        for (const auto &[key, value] : c.values)
                                saved[key] = value;
                }
                if (killer.joinable())
                        killer.join();
                service.reset(); // reaped: nothing of it writes any more
                next_change++;
                // Each key holds its last answered value or, for the change in flight, possibly
                // its new one: what the file says is what the next round expects.
                for (auto &[key, value] : saved) {
                        const size_t slash = key.find('/');
                        const std::string got = key_file_value(path, key.substr(0, slash).c_str(), key.c_str() + slash + 1);
                        EXPECT_TRUE(got == value || (in_flight.count(key) && in_flight.at(key) == got))
                                << "kill " << kill << ": " << key << " is " << got << ", answered " << value;
                        value = got;
                }
        }
}

} // namespace
