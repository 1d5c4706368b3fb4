// cgi_load: load on the configuration CGI of a running service. N clients, each on a
// thread of its own with one curl handle that it reuses (so it keeps its connection
// whenever the server allows), POST one method for a set time; prints the rate and the
// latency percentiles.
//
//   cgi_load --socket PATH [--clients 8] [--seconds 5] [--method getCameraConnection]
#include "json_post.h"

#include <glib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Every client stops after this many requests, whatever the time left.
constexpr long max_requests_per_client = 1000000;

struct LoadResult {
        std::vector<double> latencies_ms;
        long failures = 0;
        std::string first_failure;
};

void cgi_load_client(const std::string &socket, const std::string &body, Clock::time_point end, LoadResult *result)
{
        HttpClient client;
        HttpRequest request;
        request.unix_socket = socket;
        request.body = body;
        for (long n = 0; n < max_requests_per_client && Clock::now() < end; n++) {
                const Clock::time_point start = Clock::now();
                const HttpAnswer answer = client.request(request);
                const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
                if (answer.status == 200 && json_object_get(answer.json.get(), "data")) {
                        result->latencies_ms.push_back(ms);
                } else if (result->failures++ == 0) {
                        result->first_failure = std::to_string(answer.status) + " " + answer.body + answer.curl_error;
                }
        }
}

double cgi_load_percentile(const std::vector<double> &sorted, double fraction)
{
        if (sorted.empty())
                return 0.0;
        const size_t index = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1) + 0.5);
        return sorted[std::min(index, sorted.size() - 1)];
}

} // namespace

int main(int argc, char **argv)
{
        gchar *socket = nullptr;
        gchar *method = nullptr;
        gint clients = 8;
        gdouble seconds = 5.0;
        const GOptionEntry entries[] = {
                {"socket", 0, 0, G_OPTION_ARG_FILENAME, &socket, "The CGI's Unix socket", "PATH"},
                {"clients", 0, 0, G_OPTION_ARG_INT, &clients, "Concurrent clients (8)", "N"},
                {"seconds", 0, 0, G_OPTION_ARG_DOUBLE, &seconds, "How long to run (5)", "S"},
                {"method", 0, 0, G_OPTION_ARG_STRING, &method, "Method to call (getCameraConnection)", "NAME"},
                {},
        };
        GOptionContext *options = g_option_context_new("- load on the configuration CGI");
        g_option_context_add_main_entries(options, entries, nullptr);
        GError *error = nullptr;
        if (!g_option_context_parse(options, &argc, &argv, &error) || !socket || clients < 1 || seconds <= 0.0 ||
            seconds > 3600.0) {
                fprintf(stderr, "cgi_load: %s\n", error ? error->message : "give --socket, clients >= 1, 0 < seconds <= 3600");
                return 2;
        }
        g_option_context_free(options);
        const std::string body = std::string(R"({"apiVersion": "1.1", "method": ")") +
                                 (method ? method : "getCameraConnection") + "\"}";

        std::vector<LoadResult> results(static_cast<size_t>(clients));
        std::vector<std::thread> threads;
        const Clock::time_point start = Clock::now();
        const Clock::time_point end = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        for (LoadResult &result : results)
                threads.emplace_back(cgi_load_client, std::string(socket), body, end, &result);
        for (std::thread &thread : threads)
                thread.join();
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();

        std::vector<double> all;
        long failures = 0;
        for (const LoadResult &result : results) {
                all.insert(all.end(), result.latencies_ms.begin(), result.latencies_ms.end());
                if (result.failures && !failures)
                        fprintf(stderr, "cgi_load: first failure: %s\n", result.first_failure.c_str());
                failures += result.failures;
        }
        std::sort(all.begin(), all.end());
        printf("clients %d, %.1f s: %zu answers, %ld failures, %.0f requests/s, latency p50 %.3f ms, p99 %.3f ms\n",
               clients, elapsed, all.size(), failures, static_cast<double>(all.size()) / elapsed,
               cgi_load_percentile(all, 0.50), cgi_load_percentile(all, 0.99));
        g_free(socket);
        g_free(method);
        return failures ? 1 : 0;
}
