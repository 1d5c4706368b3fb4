#include "clock.h"

#include <gtest/gtest.h>

TEST(Clock, ManualClockMovesWhenAdvancedAndHandsBackToTheSystem)
{
        clock_use_manual(5'000'000);
        clock_advance_us(1'000'001);
        EXPECT_EQ(clock_now_us(), 6'000'001);
        clock_use_real();
        EXPECT_NE(clock_now_us(), 6'000'001);
}
