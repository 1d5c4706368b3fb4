// Cost of handling one scene (decode, filter, exclusion test, conversion, tracker update,
// sweep) beside the bare protobuf parse of the same frame, plain and on an arena.
#include "clock.h"
#include "exclude_areas.h"
#include "in_process_provider.h"
#include "radar_metadata.h"
#include "scene_publisher.h"
#include "settings.h"
#include "tracking.h"

#include <benchmark/benchmark.h>
#include <glib/gstdio.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numbers>

namespace {

constexpr int zones = 4, rings_per_zone = 8;

// Octagons scattered over the plane: each zone's rings cover part of it, so points go
// through a mix of early and full exclusion tests.
void bench_load_zones()
{
        exclude_areas_clear();
        for (int zone = 0; zone < zones; zone++) {
                for (int ring = 0; ring < rings_per_zone; ring++) {
                        const double cx = -0.9 + 0.25 * ring, cy = -0.6 + 0.35 * zone, r = 0.12 + 0.02 * zone;
                        GVariantBuilder builder;
                        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(dd)"));
                        for (int k = 0; k < 8; k++) {
                                const double a = k * std::numbers::pi / 4.0;
                                g_variant_builder_add(&builder, "(dd)", cx + r * std::cos(a), cy + r * std::sin(a));
                        }
                        GVariant *vertices = g_variant_ref_sink(g_variant_builder_end(&builder));
                        exclude_areas_add(zone + 1, vertices);
                        g_variant_unref(vertices);
                }
        }
        exclude_areas_publish();
}

// n objects spread over the field in front of the radar, as the simulated radar writes
// them; shift moves them a little so consecutive scenes differ.
std::vector<uint8_t> bench_frame(uint32_t n, float shift)
{
        Scene scene;
        scene.set_time(1);
        for (uint32_t i = 0; i < n; i++) {
                const float f = static_cast<float>(i) / static_cast<float>(n);
                const float x = -60.0f + 120.0f * f + shift, y = 10.0f + 80.0f * std::fmod(f * 7.0f, 1.0f);
                Object *object = scene.add_objects();
                object->set_id(1000 + i);
                object->set_confidence(0.9f);
                object->mutable_labels()->add_labels()->set_id(i % 2 ? 3 : 4);
                BoundingBox *box = object->mutable_bounding_box();
                box->set_left(x / 100.0f);
                box->set_top(y / 100.0f);
                box->set_right(x / 100.0f);
                box->set_bottom(y / 100.0f);
                object->mutable_position()->set_x(std::hypot(x, y));
                object->mutable_position()->set_y(std::atan2(x, y) * 180.0f / std::numbers::pi_v<float>);
        }
        return scene_publisher_frame(scene);
}

// The service's state around the scene intake: settings, tracker, zones, class table.
struct BenchService {
        BenchService()
        {
                clock_use_manual(1'000'000'000);
                settings_set_object_types(FALSE, TRUE, TRUE, FALSE);
                controller = ptz_controller_create();
                tracker = target_tracker_create();
                tracking_core_attach(controller, tracker);
                exclude_areas_init();
                bench_load_zones();
                dir = g_dir_make_tmp("radar-bench-XXXXXX", nullptr);
                const std::string path = std::string(dir) + "/provider.sock";
                g_setenv("RADAR_SCENE_PROVIDER_SOCKET", path.c_str(), TRUE);
                provider = std::make_unique<InProcessProvider>(
                        path, std::vector<std::string>{"Raw", "RawAssociated", "Unknown", "Human", "Vehicle", "SmallObject"});
                radar_metadata_setup();
        }
        ~BenchService()
        {
                radar_metadata_cleanup();
                provider.reset();
                g_rmdir(dir);
                g_free(dir);
                exclude_areas_cleanup();
                tracking_core_attach(nullptr, nullptr);
                target_tracker_destroy(tracker);
                ptz_controller_destroy(controller);
                clock_use_real();
        }
        PtzController *controller;
        TargetTracker *tracker;
        gchar *dir;
        std::unique_ptr<InProcessProvider> provider;
};

void BM_SceneHandling(benchmark::State &state)
{
        BenchService service;
        const auto n = static_cast<uint32_t>(state.range(0));
        const std::vector<uint8_t> frames[2] = {bench_frame(n, 0.0f), bench_frame(n, 0.5f)};
        size_t k = 0;
        for (auto _ : state) {
                // The subscriber hands over a malloc'ed copy that the handler frees.
                const std::vector<uint8_t> &frame = frames[k++ & 1];
                auto *copy = static_cast<uint8_t *>(malloc(frame.size()));
                memcpy(copy, frame.data(), frame.size());
                radar_metadata_handle_scene(copy);
        }
        state.SetItemsProcessed(state.iterations());
        state.counters["frame_bytes"] = static_cast<double>(frames[0].size());
}
BENCHMARK(BM_SceneHandling)->Arg(1)->Arg(16)->Arg(64)->Arg(256);

void BM_SceneParseOnly(benchmark::State &state)
{
        const auto n = static_cast<uint32_t>(state.range(0));
        const std::vector<uint8_t> frames[2] = {bench_frame(n, 0.0f), bench_frame(n, 0.5f)};
        size_t k = 0;
        for (auto _ : state) {
                const std::vector<uint8_t> &frame = frames[k++ & 1];
                Scene scene;
                benchmark::DoNotOptimize(scene.ParseFromArray(frame.data() + 4, static_cast<int>(frame.size() - 4)));
        }
        state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SceneParseOnly)->Arg(1)->Arg(16)->Arg(64)->Arg(256);

// The parse alone as the handler does it, on an arena with its first block on the stack.
void BM_SceneParseOnArena(benchmark::State &state)
{
        const auto n = static_cast<uint32_t>(state.range(0));
        const std::vector<uint8_t> frames[2] = {bench_frame(n, 0.0f), bench_frame(n, 0.5f)};
        size_t k = 0;
        for (auto _ : state) {
                const std::vector<uint8_t> &frame = frames[k++ & 1];
                alignas(16) char first_block[16384];
                google::protobuf::ArenaOptions options;
                options.initial_block = first_block;
                options.initial_block_size = sizeof(first_block);
                google::protobuf::Arena arena(options);
                Scene *scene = google::protobuf::Arena::CreateMessage<Scene>(&arena);
                benchmark::DoNotOptimize(scene->ParseFromArray(frame.data() + 4, static_cast<int>(frame.size() - 4)));
        }
        state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SceneParseOnArena)->Arg(1)->Arg(16)->Arg(64)->Arg(256);

} // namespace

BENCHMARK_MAIN();
