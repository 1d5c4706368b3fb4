// The exclusion test as the scene thread runs it: every object of every scene.
#include "exclude_areas.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

// An octagon-ish ring of 8 vertices around (cx, cy).
GVariant *ring(double cx, double cy, double radius)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(dd)"));
        for (int i = 0; i < 8; i++) {
                const double angle = i * M_PI / 4;
                g_variant_builder_add(&builder, "(dd)", cx + radius * std::cos(angle), cy + radius * std::sin(angle));
        }
        return g_variant_ref_sink(g_variant_builder_end(&builder));
}

// 4 zones of 8 rings each; 64 objects spread over the square, about half of them in
// the first zone's rings so that later zones are visited too.
void BM_SceneOf64Objects(benchmark::State &state)
{
        exclude_areas_init();
        exclude_areas_clear();
        for (gint32 zone = 1; zone <= 4; zone++)
                for (int r = 0; r < 8; r++) {
                        GVariant *vertices = ring(-0.8 + 0.2 * r, -0.6 + 0.3 * zone, 0.25 + 0.05 * zone);
                        exclude_areas_add(zone, vertices);
                        g_variant_unref(vertices);
                }
        exclude_areas_publish();
        std::vector<std::pair<double, double>> objects;
        for (int i = 0; i < 64; i++)
                objects.emplace_back(-0.95 + 0.03 * i, std::sin(i) * 0.9);

        for (auto _ : state) {
                int excluded = 0;
                for (const auto &[x, y] : objects)
                        excluded += exclude_areas_contains(x, y);
                benchmark::DoNotOptimize(excluded);
        }
        state.counters["scenes/s"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                        benchmark::Counter::kIsRate);
        exclude_areas_cleanup();
}
BENCHMARK(BM_SceneOf64Objects);

} // namespace

BENCHMARK_MAIN();
