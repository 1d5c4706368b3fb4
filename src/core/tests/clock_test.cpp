#include "clock.h"

#include <gtest/gtest.h>

TEST(Clock, ManualClockStepsOnlyWhenAdvancedAndHandsBackToTheSystem)
{
        clock_use_manual(5'000'000);
        EXPECT_EQ(clock_now_us(), 5'000'000);
        EXPECT_EQ(clock_now_us(), 5'000'000);
        clock_advance_us(1'000'001);
        EXPECT_EQ(clock_now_us(), 6'000'001);
        EXPECT_FLOAT_EQ(clock_seconds_between(5'000'000, clock_now_us()), 1.000001f);

        clock_use_real();
        const int64_t a = clock_now_us();
        const int64_t b = clock_now_us();
        EXPECT_LE(a, b);
        EXPECT_NE(a, 6'000'001);
}
