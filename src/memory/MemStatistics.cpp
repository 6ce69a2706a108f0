#include "memory/MemStatistics.h"

#include <atomic>

namespace {
// Owners release on whichever thread drops them; relaxed order is enough for
// a figure that is only shown.
std::atomic<int64_t> g_bytes{0};
}

void MemStatistics::add(int64_t bytes)
{
    g_bytes.fetch_add(bytes, std::memory_order_relaxed);
}

void MemStatistics::remove(int64_t bytes)
{
    g_bytes.fetch_sub(bytes, std::memory_order_relaxed);
}

int64_t MemStatistics::bytes()
{
    return g_bytes.load(std::memory_order_relaxed);
}
