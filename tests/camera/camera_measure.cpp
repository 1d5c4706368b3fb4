// Measures how fast the camera link answers the radar, against the simulated unit: the
// time from an object's first scene to the camera's first continuous move, over a number
// of fresh starts, and how many TCP connections the camera accepted for the requests of
// one long run. Run on demand, inside the rig's sandbox:
//   tests/rig/sandbox -- build/release/tests/camera/camera_measure [--runs=20] [--follow-s=120]
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "sim_unit.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

int runs = 20;
int follow_s = 120;

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
        std::vector<double> sorted = delays_ms;
        std::sort(sorted.begin(), sorted.end());
        printf("first move after first scene over %d runs: median %.1f ms, worst %.1f ms, best %.1f ms\n", runs,
               sorted[sorted.size() / 2], sorted.back(), sorted.front());

        MeasuredRun run;
        std::this_thread::sleep_for(std::chrono::seconds(follow_s));
        const SimCameraStatus status = run.camera.status();
        uint64_t moves = 0;
        for (const SimCameraRequest &r : run.camera.requests())
                moves += is_move(r);
        const uint64_t connections = status.http_connections + status.https_connections;
        printf("following for %d s: %llu requests (%llu moves) on %llu TCP connections: %.2f connections per 1000 "
               "requests\n",
               follow_s, static_cast<unsigned long long>(status.requests), static_cast<unsigned long long>(moves),
               static_cast<unsigned long long>(connections),
               1000.0 * static_cast<double>(connections) / static_cast<double>(status.requests));
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
        }
        return RUN_ALL_TESTS();
}
