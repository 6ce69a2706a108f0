// Counts every allocation of the test program, so that a test can show that
// a walk makes none. The replacement operators may be defined once per
// program: include this from exactly one file of a suite.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

inline std::atomic<long> g_allocations{0};

#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t n)
{
    ++g_allocations;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
