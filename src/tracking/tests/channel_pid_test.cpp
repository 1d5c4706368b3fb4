#include "channel_pid.h"
#include "clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

namespace {

ChannelPid pan_like(float kp, float ki, float kd)
{
        return ChannelPid(2, kp, ki, kd, 1.0f, -100.0f, 100.0f, 2.0f, 3.0f);
}

class Pid : public ::testing::Test {
protected:
        void SetUp() override { clock_use_manual(1'000'000'000); }
        void TearDown() override { clock_use_real(); }
};

} // namespace

TEST_F(Pid, LawStartsWithPureProportionalLimitsTheIntegralAndAppliesDeadBands)
{
        ChannelPid pid = pan_like(1.0f, 1.0f, 0.5f);
        pid.start();
        pid.update(10);
        EXPECT_EQ(pid.output(), 10.0f);
        // I grows by ki x (e + |de| / 2) x dt = 1 x (6 + 2) x 0.5; D = 0.5 x -4 / 0.5.
        clock_advance_us(500'000);
        pid.update(6);
        EXPECT_FLOAT_EQ(pid.integral(), 4.0f);
        EXPECT_FLOAT_EQ(pid.output(), 6.0f);
        // The integral gets only the room that P leaves inside +-100, at either end:
        // -50 leaves [-50, 150] (the candidate is 4 + (-50 + 28) x 5 = -106), 50 leaves
        // [-150, 50] (the candidate is -50 + (50 + 50) x 1.5 = 100).
        for (const auto &[error, us] : {std::pair{-50.0f, 5'000'000}, {50.0f, 1'500'000}}) {
                clock_advance_us(us);
                pid.update(error);
                EXPECT_EQ(pid.integral(), error);
                EXPECT_EQ(pid.output(), 2 * error);
        }
        pid.update(30);
        EXPECT_TRUE(std::isfinite(pid.output())) << "two updates in the same microsecond";
        pid.stop();
        EXPECT_EQ(pid.output(), 0.0f);

        // Small outputs are dropped only while the error is inside its dead-band too.
        ChannelPid pan = pan_like(2.0f, 0.0f, 0.0f);
        pan.start();
        pan.update(1.45f);
        EXPECT_EQ(pan.output(), 0.0f);
        pan.update(1.5f);
        EXPECT_EQ(pan.output(), 3.0f);
        pan.set_gains(1.0f, 0.0f, 0.0f);
        pan.update(2.0f);
        EXPECT_EQ(pan.output(), 2.0f) << "an error right at its dead-band is outside it";
}

TEST_F(Pid, AutotuneDerivesTheRuleGainsFromSteadyCyclesAndGivesUpWithoutThem)
{
        clock_use_manual(1'000'000); // a second after boot: "never started" is not "long ago"
        ChannelPid pid = pan_like(1.0f, 0.0f, 0.0f);
        float command = 7.0f;
        EXPECT_TRUE(pid.autotune_step(&command, 3.0f)) << "never started";
        EXPECT_EQ(command, 7.0f);
        EXPECT_FALSE(pid.autotune_finished());

        // A cycle may be as short as two samples: the next rise is sought right after the fall.
        // A sample right at the lower threshold (a tenth of the swing below the middle) is no
        // fall, and one at the middle no rise.
        std::vector<AutotuneCycle> cycles;
        autotune_extract_cycles({{5, 0}, {-5, 1}, {5, 2}, {-1, 3}, {5, 4}, {-5, 5}, {0, 6}, {-5, 7}, {5, 8}}, cycles);
        ASSERT_EQ(cycles.size(), 2u);
        EXPECT_LT(cycles[0].period, cycles[1].period) << "the first rise after the fall at 1 is at 2";

        // A square wave of 10 peak to peak and 2 s period: the 13th upward crossing at 24 s
        // completes the 12th cycle. At the set point itself the relay pushes up.
        pid.autotune_start(0.0f, 35.0f);
        pid.autotune_step(&command, 0.0f);
        EXPECT_EQ(command, 35.0f);
        pid.autotune_step(&command, 100.0f);
        pid.autotune_start(0.0f, 35.0f); // discards those samples
        int64_t t = 0;
        while (!pid.autotune_step(&command, (t / 1000) % 2 == 0 ? 5.0f : -5.0f) && t < 30'000) {
                t += 50;
                clock_advance_us(50'000);
        }
        EXPECT_EQ(t, 24'000);
        ASSERT_TRUE(pid.autotune_finished());
        EXPECT_NEAR(pid.ultimate_gain(), 8.9127f, 1e-4);
        EXPECT_FLOAT_EQ(pid.ultimate_period(), 2.0f);
        double kp = 0, ki = 0, kd = 0;
        pid.tuned_gains(&kp, &ki, &kd);
        EXPECT_NEAR(kp, 1.7825, 1e-4);
        EXPECT_EQ(ki, 0.5);
        EXPECT_NEAR(kd, 0.3333, 1e-4);

        // Cycles whose periods, or swings, deviate by exactly a quarter of their mean are not
        // steady: periods of 1.5 and 2.5 s in turn, then swings of 6 and 10. Given up after 25 s.
        using Wave = float (*)(int64_t ms);
        const Wave periods = [](int64_t ms) {
                return ms % 4000 < 750 || (ms % 4000 >= 1500 && ms % 4000 < 2750) ? 5.0f : -5.0f;
        };
        const Wave swings = [](int64_t ms) {
                const bool wide = ms % 4000 >= 2000;
                return ms % 2000 < 1000 ? (wide ? 5.0f : 2.0f) : (wide ? -5.0f : -4.0f);
        };
        for (const Wave wave : {periods, swings}) {
                ChannelPid pan = pan_like(1.0f, 0.0f, 0.0f);
                pan.autotune_start(0.0f, 35.0f);
                for (t = 0; !pan.autotune_step(&command, wave(t)) && t < 30'000; t += 50)
                        clock_advance_us(50'000);
                EXPECT_EQ(t, 25'050);
                EXPECT_FALSE(pan.autotune_finished());
                command = 1234.0f;
                EXPECT_TRUE(pan.autotune_step(&command, 0.0f));
                EXPECT_EQ(command, 1234.0f);
        }
}
