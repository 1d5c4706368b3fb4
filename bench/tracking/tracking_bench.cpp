// Cost of one control tick's tracker work and of one autotune step late in an autotune.
#include "channel_pid.h"
#include "clock.h"
#include "target_tracker.h"

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

// One scene of n objects spread over the radar's field, as the scene intake delivers it,
// then the control tick's refresh and get_target.
void BM_TrackerSceneAndTick(benchmark::State &state)
{
        const auto n = static_cast<uint32_t>(state.range(0));
        clock_use_manual(1'000'000'000);
        TargetTracker tracker;
        float drift = 0.0f;
        for (auto _ : state) {
                drift = drift > 1.0f ? 0.0f : drift + 0.01f;
                for (uint32_t object = 0; object < n; object++) {
                        const float spread = 180.0f * static_cast<float>(object) / static_cast<float>(n);
                        const float pan = -90.0f + spread + drift;
                        tracker.update_target(1, object, pan, -8.0f, 4.0f);
                }
                tracker.refresh();
                float pan = 0, tilt = 0, width = 0;
                benchmark::DoNotOptimize(tracker.get_target(0.0f, 0.0f, &pan, &tilt, &width));
                clock_advance_us(100'000);
        }
        state.counters["groups"] = static_cast<double>(tracker.groups().size());
        clock_use_real();
}
BENCHMARK(BM_TrackerSceneAndTick)->Arg(8)->Arg(64)->Arg(256);

// An autotune step once the autotune tick has gathered 500 samples (about the 25 s limit).
// Each iteration steps a fresh copy, so the list stays at 500.
void BM_AutotuneStepAfter500Samples(benchmark::State &state)
{
        clock_use_manual(1'000'000'000);
        ChannelPid prepared(2, 1.0f, 0.0f, 0.0f, 1.0f, -100.0f, 100.0f, 2.0f, 3.0f);
        prepared.autotune_start(0.0f, 35.0f);
        float command = 0.0f;
        for (int i = 0; i < 500; i++) {
                // Swings of uneven size over a steady period.
                const float swing = 5.0f + 4.0f * static_cast<float>(i % 7);
                prepared.autotune_step(&command, swing * std::sin(static_cast<float>(i) * 0.285f));
                clock_advance_us(45'000);
        }
        for (auto _ : state) {
                state.PauseTiming();
                ChannelPid pid = prepared;
                state.ResumeTiming();
                benchmark::DoNotOptimize(pid.autotune_step(&command, 1.0f));
                benchmark::DoNotOptimize(command);
        }
        state.counters["finished"] = prepared.autotune_finished() ? 1.0 : 0.0;
        clock_use_real();
}
BENCHMARK(BM_AutotuneStepAfter500Samples);

} // namespace

BENCHMARK_MAIN();
