// The service's only reading of the monotonic clock. Tests take the clock over and step
// it, so nothing waits for a real tick, expiry or time-out.
#pragma once

#include <cstdint>

// Microseconds of the monotonic clock (g_get_monotonic_time), or of the test clock once
// clock_use_manual has been called. Safe from any thread.
int64_t clock_now_us();

// Seconds between two readings, as float: the form the tracking core works in.
inline float clock_seconds_between(int64_t earlier_us, int64_t later_us)
{
        return static_cast<float>(later_us - earlier_us) / 1000000.0f;
}

// Test control: freeze the clock at start_us; clock_advance_us moves it forward;
// clock_use_real hands the clock back to the system.
void clock_use_manual(int64_t start_us);
void clock_advance_us(int64_t delta_us);
void clock_use_real();
