// Durability of the configuration file under SIGKILL: the real service takes a stream of
// CGI changes and is killed at a random moment (seeded, so a failure can be replayed);
// after each kill the file must parse and hold every change the CGI answered, and the
// service must start on it again.
//
// TRELVO_DURABILITY_SEED=N replays another sequence of kills (the default is fixed).
#include "private_bus.h"
#include "service_process.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <thread>

namespace {

constexpr int kills = 20;
constexpr int most_answers_before_kill = 12;
constexpr int longest_extra_wait_us = 4000;

// A key as the test reads it back: group, key and how to read it.
enum class KeyType { number, integer, boolean, text };
struct Key {
        const char *group;
        const char *name;
        KeyType type;
        bool operator<(const Key &other) const
        {
                return std::tie(group, name) < std::tie(other.group, other.name);
        }
};

const Key mounting_height{"camera", "mounting_height", KeyType::number};
const Key pan_offset{"camera", "pan_offset", KeyType::number};
const Key ip{"camera", "ip", KeyType::text};
const Key user{"camera", "user", KeyType::text};
const Key guard_tour_time{"tracking", "guard_tour_time", KeyType::number};
const Key guard_tour_enabled{"tracking", "guard_tour_enabled", KeyType::boolean};
const Key return_to_home_timeout{"tracking", "return_to_home_timeout", KeyType::integer};
const Key small{"tracking", "small_object_track", KeyType::boolean};
const Key human{"tracking", "human_object_track", KeyType::boolean};

// Values in one canonical text per type, so that the file's text form does not matter.
using Values = std::map<Key, std::string>;

std::string number(double value)
{
        g_autofree gchar *text = g_strdup_printf("%.17g", value);
        return text;
}

std::string flag(bool value)
{
        return value ? "1" : "0";
}

// One CGI request and the keys it saves (the object types: one save per key).
struct Change {
        std::string body;
        Values values;
};

std::string request(const char *method, const std::string &params)
{
        return std::string(R"({"apiVersion": "1.1", "method": ")") + method + R"(", "params": )" + params + "}";
}

std::string json_bool(bool value)
{
        return value ? "true" : "false";
}

// Change n of a run: the setters in turn, each value distinct from the setter's last.
Change change(int n)
{
        const int v = n / 7;
        switch (n % 7) {
        case 0: {
                const double height = 1.0 + v % 150 / 10.0;
                return {request("setCameraMountingHeight", R"({"value": )" + number(height) + "}"),
                        {{mounting_height, number(height)}}};
        }
        case 1: {
                const double degrees = v % 720 - 359.75;
                return {request("setCameraPanOffset", R"({"value": )" + number(degrees) + "}"),
                        {{pan_offset, number(degrees)}}};
        }
        case 2: {
                const std::string address = "10.0." + std::to_string(v / 250 % 250) + "." + std::to_string(v % 250 + 1);
                const std::string name = "op" + std::to_string(v);
                return {request("setCameraConnection",
                                R"({"ip": ")" + address + R"(", "user": ")" + name + R"(", "pass": "pw"})"),
                        {{ip, address}, {user, name}}};
        }
        case 3: {
                const double seconds = 1.5 + v % 58;
                return {request("setGuardTourTime", R"({"value": )" + number(seconds) + "}"),
                        {{guard_tour_time, number(seconds)}}};
        }
        case 4: {
                const int seconds = 1 + v % 300;
                return {request("setReturnToHomeTimeout", R"({"value": )" + std::to_string(seconds) + "}"),
                        {{return_to_home_timeout, std::to_string(seconds)}}};
        }
        case 5:
                return {request("setGuardTourEnabled", R"({"value": )" + json_bool(v % 2 == 0) + "}"),
                        {{guard_tour_enabled, flag(v % 2 == 0)}}};
        default:
                return {request("setObjectTypesToTrack",
                                R"({"small": )" + json_bool(v % 2 == 0) + R"(, "human": )" + json_bool(v % 4 >= 2) + "}"),
                        {{small, flag(v % 2 == 0)}, {human, flag(v % 4 >= 2)}}};
        }
}

// The keys of the file as the test compares them; nullopt when the file does not parse.
std::optional<Values> read_file(const std::string &path, const Values &keys)
{
        g_autoptr(GKeyFile) file = g_key_file_new();
        if (!g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr))
                return std::nullopt;
        Values read;
        for (const auto &[key, unused] : keys) {
                GError *error = nullptr;
                switch (key.type) {
                case KeyType::number:
                        read[key] = number(g_key_file_get_double(file, key.group, key.name, &error));
                        break;
                case KeyType::integer:
                        read[key] = std::to_string(g_key_file_get_integer(file, key.group, key.name, &error));
                        break;
                case KeyType::boolean:
                        read[key] = flag(g_key_file_get_boolean(file, key.group, key.name, &error));
                        break;
                case KeyType::text: {
                        g_autofree gchar *text = g_key_file_get_string(file, key.group, key.name, &error);
                        read[key] = text ? text : "";
                        break;
                }
                }
                if (error)
                        read[key] = std::string("(") + error->message + ")";
                g_clear_error(&error);
        }
        return read;
}

// What the client has seen answered, and what it sent without an answer yet.
struct Progress {
        std::mutex mutex;
        std::condition_variable answered_more;
        int answered = 0;
        Values saved;                   // every answered change applied
        std::optional<Values> in_flight; // sent, not answered: may or may not be in the file
        bool stopped = false;
};

// Sends changes from `first` on until a request goes unanswered (the service was killed).
void send_changes(const ServiceProcess &service, int first, Progress &progress)
{
        for (int n = first;; n++) {
                const Change c = change(n);
                {
                        std::lock_guard lock(progress.mutex);
                        progress.in_flight = c.values;
                }
                const HttpAnswer answer = service.cgi(c.body);
                std::lock_guard lock(progress.mutex);
                if (!json_object_get(answer.json.get(), "data")) {
                        EXPECT_EQ(json_object_get(answer.json.get(), "error"), nullptr) << c.body << ": " << answer.body;
                        progress.stopped = true;
                        progress.answered_more.notify_all();
                        return;
                }
                for (const auto &[key, value] : c.values)
                        progress.saved[key] = value;
                progress.in_flight.reset();
                progress.answered++;
                progress.answered_more.notify_all();
        }
}

// Each key holds its last answered value, or, for the change in flight, possibly its new one.
void expect_file_holds(const std::string &path, const Progress &progress, int kill)
{
        const std::optional<Values> read = read_file(path, progress.saved);
        ASSERT_TRUE(read) << "kill " << kill << ": the file does not parse";
        for (const auto &[key, value] : progress.saved) {
                const std::string &got = read->at(key);
                const bool sent = progress.in_flight && progress.in_flight->count(key) &&
                                  progress.in_flight->at(key) == got;
                EXPECT_TRUE(got == value || sent)
                        << "kill " << kill << ": " << key.group << "/" << key.name << " is " << got << ", answered "
                        << value;
        }
}

TEST(Durability, EveryAnsweredChangeSurvivesSigkillAtRandomMoments)
{
        const char *seed_text = g_getenv("TRELVO_DURABILITY_SEED");
        const unsigned seed = seed_text ? static_cast<unsigned>(g_ascii_strtoull(seed_text, nullptr, 10)) : 20240612u;
        SCOPED_TRACE("TRELVO_DURABILITY_SEED=" + std::to_string(seed));
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> answers_before(0, most_answers_before_kill);
        std::uniform_int_distribution<int> extra_wait_us(0, longest_extra_wait_us);

        gchar *dir = g_dir_make_tmp("trelvo-durability-XXXXXX", nullptr);
        const std::string path = std::string(dir) + "/trelvo.conf";
        Progress progress;
        progress.saved = {{mounting_height, number(4.0)}, {pan_offset, number(0.0)}, {ip, ""}, {user, ""},
                          {guard_tour_time, number(4.0)}, {guard_tour_enabled, flag(false)},
                          {return_to_home_timeout, "25"}, {small, flag(false)}, {human, flag(true)}};
        int next_change = 0;
        int answered_total = 0;
        // One bus for every start: the zone service and the event producer are not needed.
        PrivateBus bus;
        ServiceOptions options;
        options.conf_dir = dir;
        options.debug_log = false;
        options.bus = ServiceBus::existing;
        options.bus_address = bus.address();
        for (int kill = 0; kill < kills && !HasFailure(); kill++) {
                progress.answered = 0;
                progress.stopped = false;
                {
                        ServiceProcess service(options);
                        ASSERT_TRUE(service.wait_for_line("Setting zoom degree")) << "kill " << kill;
                        ASSERT_TRUE(service.matching("Failed to read configuration").empty()) << "kill " << kill;

                        std::thread client(send_changes, std::cref(service), next_change, std::ref(progress));
                        const int wanted = answers_before(random);
                        {
                                std::unique_lock lock(progress.mutex);
                                progress.answered_more.wait_for(lock, std::chrono::seconds(30), [&] {
                                        return progress.answered >= wanted || progress.stopped;
                                });
                        }
                        // The moment itself: anywhere in the next request, or between two.
                        std::this_thread::sleep_for(std::chrono::microseconds(extra_wait_us(random)));
                        service.send_signal(SIGKILL);
                        client.join();
                } // reaped: nothing of it writes any more
                next_change += progress.answered + 1;
                answered_total += progress.answered;
                expect_file_holds(path, progress, kill);
                // Whatever was in flight is now what the file says.
                if (const std::optional<Values> read = read_file(path, progress.saved))
                        progress.saved = *read;
                progress.in_flight.reset();
        }
        {
                // The last kill's file too: the service starts on it and serves what it holds.
                ServiceProcess service(options);
                ASSERT_TRUE(service.wait_for_line("Setting zoom degree"));
                EXPECT_TRUE(service.matching("Failed to read configuration").empty());
                const HttpAnswer answer = service.cgi(R"({"apiVersion": "1.1", "method": "getCameraMountingHeight"})");
                const json_t *value = json_object_get(json_object_get(answer.json.get(), "data"), "value");
                EXPECT_EQ(number(json_number_value(value)), progress.saved.at(mounting_height)) << answer.body;
        }
        RecordProperty("answered_changes", answered_total);
        std::printf("durability: %d kills, %d answered changes, every one kept\n", kills, answered_total);

        g_autoptr(GDir) listing = g_dir_open(dir, 0, nullptr);
        while (const gchar *name = listing ? g_dir_read_name(listing) : nullptr)
                g_unlink((std::string(dir) + "/" + name).c_str()); // with any temporary file a kill left
        g_rmdir(dir);
        g_free(dir);
}

} // namespace
