#include "tests/support/stopwatch.h"

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

namespace {

std::int64_t Counter() {
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return counter.QuadPart;
}

std::int64_t Frequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

}  // namespace

Stopwatch::Stopwatch() : m_start(Counter()) {}

std::chrono::nanoseconds Stopwatch::Elapsed() const {
    static const std::int64_t frequency = Frequency();
    const std::int64_t ticks = Counter() - m_start;
    return std::chrono::seconds(ticks / frequency) +
           std::chrono::nanoseconds(ticks % frequency * 1'000'000'000 / frequency);
}

}  // namespace Zarvo::Test
