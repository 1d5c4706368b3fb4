// Measures the camera link against the simulated unit, on demand (not a test):
// - the time from an object's first scene to the camera's first continuous move, over a
//   number of fresh starts of the service;
// - over one long run of the service following the walking person with the stream on:
//   TCP connections per 1000 requests, the service's CPU time per minute and its peak
//   resident memory; then the CGI under load from 8 keep-alive clients (cgi_load) while
//   the service goes on following;
// - in this process, the delay from a change of the simulated camera's position to the
//   new value in the camera position record, over the stream and over the poll.
// Inside the rig's sandbox:
//   tests/rig/sandbox -- build/release/bench/camera/camera_measure [--runs=20] [--follow-s=120] [--samples=50]
#include "camera.h"
#include "camera_position.h"
#include "events.h"
#include "persistent.h"
#include "private_bus.h"
#include "settings.h"
#include "settings_load.h"
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "sim_unit.h"

#include <fstream>
#include <random>
#include <sstream>

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cmath>
#include <cstring>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

int runs = 20;
int follow_s = 120;
int samples = 50;

void print_summary(const char *what, std::vector<double> values, const char *unit)
{
        std::sort(values.begin(), values.end());
        printf("%s over %zu: median %.1f %s, worst %.1f %s, best %.1f %s\n", what, values.size(),
               values[values.size() / 2], unit, values.back(), unit, values.front(), unit);
}

// User plus system CPU seconds of a process so far.
double cpu_seconds(pid_t pid)
{
        gchar *contents = nullptr;
        g_file_get_contents(("/proc/" + std::to_string(pid) + "/stat").c_str(), &contents, nullptr, nullptr);
        const std::string text(contents ? contents : "");
        g_free(contents);
        std::istringstream fields(text.substr(text.rfind(')') + 2));
        std::string field;
        unsigned long long utime = 0, stime = 0;
        for (int i = 3; i <= 15 && fields >> field; i++) {
                if (i == 14)
                        utime = std::stoull(field);
                if (i == 15)
                        stime = std::stoull(field);
        }
        return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The peak resident memory of a process, KiB.
long peak_rss_kib(pid_t pid)
{
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string line; std::getline(status, line);)
                if (line.rfind("VmHWM:", 0) == 0)
                        return std::stol(line.substr(6));
        return -1;
}

bool is_move(const SimCameraRequest &r)
{
        return r.path.rfind("zelk-cgi/com/ptz.cgi?continuouspantiltmove=", 0) == 0;
}

// The first continuous move logged at or after since_us; -1 when none came in time.
int64_t first_move_after(SimCameraProcess &camera, int64_t since_us, double seconds)
{
        uint64_t next = 0;
        const int64_t deadline = g_get_monotonic_time() + static_cast<int64_t>(seconds * 1e6);
        while (g_get_monotonic_time() < deadline) {
                for (const SimCameraRequest &r : camera.requests(next, &next))
                        if (is_move(r) && r.t_us >= since_us)
                                return r.t_us;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
}

struct MeasuredRun {
        SimCameraProcess camera;
        SimUnit unit{"walk_20m.json"}; // the person enters 3 s after the radar starts
        std::unique_ptr<ServiceProcess> service;

        MeasuredRun()
        {
                unit.configure("pass", "name=ZPT-6100\n"); // tuned already: straight to connected
                service = unit.start_service();
                EXPECT_TRUE(service->events().wait_for_states({"connecting", "connected"}));
        }
        ~MeasuredRun()
        {
                service->send_signal(SIGTERM);
                service->wait_exit();
        }
};

TEST(Measure, FirstMoveAfterFirstSceneAndConnectionsPerRequest)
{
        std::vector<double> delays_ms;
        for (int i = 0; i < runs; i++) {
                MeasuredRun run;
                ASSERT_TRUE(run.unit.radar().wait_for_line("sim-radar: object 1 appears at "));
                const int64_t appeared = run.unit.object_appeared_us(1);
                const int64_t moved = first_move_after(run.camera, appeared, 5.0);
                ASSERT_GT(moved, 0) << "no move within 5 s of run " << i;
                delays_ms.push_back(static_cast<double>(moved - appeared) / 1000.0);
                printf("run %2d: first move %.1f ms after the first scene\n", i + 1, delays_ms.back());
        }
        print_summary("first move after first scene, runs", delays_ms, "ms");

        MeasuredRun run;
        const double cpu_before = cpu_seconds(run.service->pid());
        std::this_thread::sleep_for(std::chrono::seconds(follow_s));
        const double cpu = cpu_seconds(run.service->pid()) - cpu_before;
        const SimCameraStatus status = run.camera.status();
        printf("service over %d s of following with the stream on: %.3f s CPU (%.3f s per minute, %.2f%% of one "
               "core), peak resident memory %ld KiB\n",
               follow_s, cpu, cpu * 60.0 / follow_s, 100.0 * cpu / follow_s, peak_rss_kib(run.service->pid()));
        uint64_t moves = 0;
        for (const SimCameraRequest &r : run.camera.requests())
                moves += is_move(r);
        const uint64_t connections = status.http_connections + status.https_connections;
        printf("following for %d s: %llu requests (%llu moves) on %llu TCP connections: %.2f connections per 1000 "
               "requests\n",
               follow_s, static_cast<unsigned long long>(status.requests), static_cast<unsigned long long>(moves),
               static_cast<unsigned long long>(connections),
               1000.0 * static_cast<double>(connections) / static_cast<double>(status.requests));

        ChildProcess load({CGI_LOAD, "--socket", run.service->cgi_socket_path(), "--clients", "8", "--seconds", "10"});
        EXPECT_EQ(load.wait_exit(30.0), 0);
        for (const std::string &line : load.lines())
                printf("CGI while following: %s\n", line.c_str());
}

// Runs the main loop until condition holds or the time is up.
bool run_until(const std::function<bool()> &condition, double seconds)
{
        const int64_t deadline = g_get_monotonic_time() + static_cast<int64_t>(seconds * 1e6);
        while (!condition() && g_get_monotonic_time() < deadline)
                if (!g_main_context_iteration(nullptr, FALSE))
                        g_usleep(200);
        return condition();
}

TEST(Measure, PositionDelayOverStreamAndPoll)
{
        PrivateBus bus;
        SimEventsProcess events(bus.address());
        ASSERT_TRUE(persistent_setup());
        settings_load();
        ASSERT_TRUE(declare_state_event());
        persistent_set_camera_name("ZPT-6100");
        std::mt19937 random(7);
        for (const bool stream : {true, false}) {
                const char *address = stream ? "127.0.0.2" : "127.0.0.3";
                std::vector<std::string> options = {"--address", address};
                if (!stream)
                        options.insert(options.end(), {"--metadata", "no"});
                SimCameraProcess camera(options);
                settings_set_camera_connection(address, "root", "pass");
                camera_request_reconnect();
                ptz_control_setup();
                ASSERT_TRUE(run_until([] { return camera_is_connected(); }, 10.0));
                ASSERT_TRUE(run_until([&] { return stream == (camera.status().rtsp_clients > 0); }, 10.0));
                std::vector<double> delays_ms;
                for (int i = 0; i < samples; i++) {
                        // A random wait, so that changes fall anywhere in the stream's or poll's period.
                        run_until([] { return false; }, std::uniform_real_distribution<double>(0.0, 0.6)(random));
                        const float pan = static_cast<float>(i % 2 ? 10 + i : -10 - i);
                        const int64_t changed = g_get_monotonic_time();
                        camera.teleport(pan, -10.0, 1);
                        if (!run_until([&] { return std::fabs(camera_position_get().pan - pan) < 0.01f; }, 5.0))
                                continue;
                        delays_ms.push_back(static_cast<double>(g_get_monotonic_time() - changed) / 1000.0);
                }
                print_summary(stream ? "position delay over the stream, changes" : "position delay over the poll, changes",
                              delays_ms, "ms");
                ptz_control_teardown();
        }
        undeclare_state_event();
        settings_cleanup();
        persistent_cleanup();
}

} // namespace

int main(int argc, char **argv)
{
        ::testing::InitGoogleTest(&argc, argv);
        for (int i = 1; i < argc; i++) {
                if (std::strncmp(argv[i], "--runs=", 7) == 0)
                        runs = std::max(1, std::atoi(argv[i] + 7));
                else if (std::strncmp(argv[i], "--follow-s=", 11) == 0)
                        follow_s = std::max(1, std::atoi(argv[i] + 11));
                else if (std::strncmp(argv[i], "--samples=", 10) == 0)
                        samples = std::max(1, std::atoi(argv[i] + 10));
        }
        return RUN_ALL_TESTS();
}
