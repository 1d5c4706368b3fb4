#include "clock.h"

#include <atomic>
#include <glib.h>

namespace {
std::atomic<bool> clock_manual{false};
std::atomic<int64_t> clock_manual_now_us{0};
} // namespace

int64_t clock_now_us()
{
        if (clock_manual.load(std::memory_order_acquire))
                return clock_manual_now_us.load(std::memory_order_acquire);
        return g_get_monotonic_time();
}

void clock_use_manual(int64_t start_us)
{
        clock_manual_now_us.store(start_us, std::memory_order_release);
        clock_manual.store(true, std::memory_order_release);
}

void clock_advance_us(int64_t delta_us)
{
        clock_manual_now_us.fetch_add(delta_us, std::memory_order_acq_rel);
}

void clock_use_real()
{
        clock_manual.store(false, std::memory_order_release);
}
