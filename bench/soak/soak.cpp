// A long run of the whole simulated unit with faults now and then: the 64-object crowd at
// 20 scenes a second, the camera followed over its stream, the CGI asked a few times a
// second, the camera restarted and its stream dropped in turns. The service's resident
// memory, open descriptors and threads are sampled from /proc and printed as a table; the
// run fails when any of them grows without bound: after the warm-up, the median of the
// last third of the samples may exceed the median of the first third by no more than its
// margin.
// Runs inside the rig's sandbox (the simulated camera needs ports 80, 443 and 554):
//   tests/rig/sandbox -- build/release/bench/soak/soak [--duration S] [--sample S] ...
#include "sim_camera_process.h"
#include "sim_events_process.h"
#include "sim_unit.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <thread>

namespace {

struct SoakOptions {
        double duration_s = 600.0;
        double sample_s = 5.0;
        double fault_every_s = 20.0;
        double poll_every_s = 0.25;
        double warmup_s = -1.0; // < 0: a tenth of the run, at least 10 s
        gboolean keep_alive = FALSE; // one kept-alive connection for every CGI request
};
SoakOptions soak_options;

struct SoakSample {
        double t_s = 0.0;
        double rss_kib = 0.0;
        double fds = 0.0;
        double threads = 0.0;
};

// A growth check: the quantity, and how far the last third's median may exceed the first's.
struct SoakLimit {
        const char *name;
        double SoakSample::*field;
        double relative;
        double absolute;
};

// VmRSS may wander with the allocator's caches; a descriptor or a thread more is a stream
// or a connection being replaced at the moment of a sample.
constexpr SoakLimit soak_limits[] = {
        {"VmRSS/KiB", &SoakSample::rss_kib, 0.02, 1024.0},
        {"fds", &SoakSample::fds, 0.0, 1.0},
        {"threads", &SoakSample::threads, 0.0, 1.0},
};

double soak_count_entries(const std::string &path)
{
        g_autoptr(GDir) dir = g_dir_open(path.c_str(), 0, nullptr);
        double count = 0;
        while (dir && g_dir_read_name(dir))
                count++;
        return count;
}

double soak_rss_kib(pid_t pid)
{
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string line; std::getline(status, line);)
                if (line.rfind("VmRSS:", 0) == 0)
                        return std::stod(line.substr(6));
        return 0.0;
}

SoakSample soak_sample(pid_t pid, double t_s)
{
        const std::string proc = "/proc/" + std::to_string(pid);
        return {t_s, soak_rss_kib(pid), soak_count_entries(proc + "/fd"), soak_count_entries(proc + "/task")};
}

// The median of a quantity over samples [from, to): a sample taken while a stream or a
// connection is being replaced counts no more than any other.
double soak_median(const std::vector<SoakSample> &samples, size_t from, size_t to, double SoakSample::*field)
{
        std::vector<double> values;
        for (size_t i = from; i < to; i++)
                values.push_back(samples[i].*field);
        std::sort(values.begin(), values.end());
        const size_t n = values.size();
        return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

std::string soak_connection_state(ServiceProcess &service, HttpClient *client)
{
        HttpRequest request;
        request.unix_socket = service.cgi_socket_path();
        request.body = cgi_call_body("getCameraConnection");
        const HttpAnswer answer = client ? client->request(request) : http_request(request);
        return json_member_text(json_object_get(answer.json.get(), "data"), "state");
}

// The camera fault of turn n: a restart of the camera, or a drop of its stream.
void soak_inject_fault(std::unique_ptr<SimCameraProcess> &camera, int n)
{
        if (n % 2 == 0) {
                camera.reset();
                camera = std::make_unique<SimCameraProcess>();
                return;
        }
        if (!camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 1; }, "a stream to drop"))
                return;
        camera->set_fault("stream_drop", true);
        camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 0; }, "the drop");
        camera->set_fault("stream_drop", false);
}

// Checks each quantity over the samples after the warm-up; prints the verdicts.
void soak_judge(const std::vector<SoakSample> &samples, double warmup_s)
{
        size_t start = 0;
        while (start < samples.size() && samples[start].t_s < warmup_s)
                start++;
        const size_t third = (samples.size() - start) / 3;
        ASSERT_GE(third, 2u) << "too few samples after the warm-up: run longer or sample more often";
        for (const SoakLimit &limit : soak_limits) {
                const double first = soak_median(samples, start, start + third, limit.field);
                const double last = soak_median(samples, samples.size() - third, samples.size(), limit.field);
                const double allowed = first * limit.relative + limit.absolute;
                std::printf("soak: %-9s first third %10.1f  last third %10.1f  growth %+9.1f  allowed %+9.1f  %s\n",
                            limit.name, first, last, last - first, allowed, last - first > allowed ? "GROWS" : "ok");
                EXPECT_LE(last - first, allowed) << limit.name << " grows";
        }
}

TEST(Soak, MemoryDescriptorsAndThreadsStayBoundedUnderLoadAndFaults)
{
        const SoakOptions &o = soak_options;
        const double warmup_s = o.warmup_s >= 0.0 ? o.warmup_s : std::max(10.0, o.duration_s / 10.0);
        SimUnit unit{"crowd_64.json", 20.0};
        auto camera = std::make_unique<SimCameraProcess>();
        unit.configure("pass", "name=ZPT-6100\n");
        std::unique_ptr<ServiceProcess> service = unit.start_service();
        ASSERT_TRUE(service->events().wait_for_states({"connecting", "connected"}));

        using Clock = std::chrono::steady_clock;
        const Clock::time_point start = Clock::now();
        const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
        double next_poll = 0.0, next_sample = 0.0, next_fault = o.fault_every_s;
        int faults = 0, polls = 0, answered = 0;
        std::string state;
        std::vector<SoakSample> samples;
        HttpClient kept_alive;
        HttpClient *client = o.keep_alive ? &kept_alive : nullptr;
        std::printf("%8s %10s %5s %8s %8s %7s %7s %-15s\n", "t/s", "VmRSS/KiB", "fds", "threads", "polls", "failed",
                    "faults", "state");
        for (double now = 0.0; now < o.duration_s; now = elapsed()) {
                if (now >= next_poll) {
                        state = soak_connection_state(*service, client);
                        polls++;
                        answered += !state.empty();
                        next_poll += o.poll_every_s;
                }
                if (now >= next_fault) {
                        soak_inject_fault(camera, faults++);
                        next_fault += o.fault_every_s;
                }
                if (now >= next_sample) {
                        samples.push_back(soak_sample(service->pid(), now));
                        const SoakSample &s = samples.back();
                        std::printf("%8.1f %10.0f %5.0f %8.0f %8d %7d %7d %-15s\n", s.t_s, s.rss_kib, s.fds,
                                    s.threads, polls, polls - answered, faults, state.c_str());
                        std::fflush(stdout);
                        next_sample += o.sample_s;
                }
                // A pace for the load, not a wait for the service: nothing is awaited here.
                const double next = std::min({next_poll, next_sample, next_fault, o.duration_s});
                std::this_thread::sleep_for(std::chrono::duration<double>(std::max(0.0, next - elapsed())));
        }
        EXPECT_EQ(answered, polls) << "every CGI request answered";
        soak_judge(samples, warmup_s);
        // Still following at the end, and a clean stop.
        EXPECT_TRUE(camera->wait_for([](const SimCameraStatus &s) { return s.rtsp_clients == 1; }, "a stream"));
        EXPECT_EQ(soak_connection_state(*service, client), "connected");
        EXPECT_EQ(service->stop(), 0);
}

bool soak_parse_options(int *argc, char ***argv)
{
        SoakOptions &o = soak_options;
        const GOptionEntry entries[] = {
                {"duration", 0, 0, G_OPTION_ARG_DOUBLE, &o.duration_s, "Length of the run (600)", "S"},
                {"sample", 0, 0, G_OPTION_ARG_DOUBLE, &o.sample_s, "Time between samples (5)", "S"},
                {"fault-every", 0, 0, G_OPTION_ARG_DOUBLE, &o.fault_every_s, "Time between faults (20)", "S"},
                {"poll-every", 0, 0, G_OPTION_ARG_DOUBLE, &o.poll_every_s, "Time between CGI requests (0.25)", "S"},
                {"warmup", 0, 0, G_OPTION_ARG_DOUBLE, &o.warmup_s, "Samples ignored at first (a tenth, >= 10)", "S"},
                {"keep-alive", 0, 0, G_OPTION_ARG_NONE, &o.keep_alive,
                 "All CGI requests on one kept-alive connection (default: one connection each)", nullptr},
                {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
        };
        g_autoptr(GOptionContext) context = g_option_context_new("- soak the service under load and faults");
        g_option_context_add_main_entries(context, entries, nullptr);
        g_option_context_set_ignore_unknown_options(context, TRUE); // GoogleTest's own
        g_autoptr(GError) error = nullptr;
        if (!g_option_context_parse(context, argc, argv, &error)) {
                std::fprintf(stderr, "soak: %s\n", error->message);
                return false;
        }
        return o.duration_s > 0.0 && o.sample_s > 0.0 && o.fault_every_s > 0.0 && o.poll_every_s > 0.0;
}

} // namespace

int main(int argc, char **argv)
{
        if (!soak_parse_options(&argc, &argv))
                return 2;
        ::testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
}
