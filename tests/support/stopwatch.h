// Time since construction, measured with the performance counter.
//
// The standard clocks will not do: one supported standard library's steady_clock is the wall clock, which may step, and
// the library's own clocks are among the things under test.
//
// Threads: any.
#pragma once

#include <chrono>
#include <cstdint>

namespace Zarvo::Test {

class Stopwatch {
  public:
    Stopwatch();

    std::chrono::nanoseconds Elapsed() const;

  private:
    std::int64_t m_start;
};

}  // namespace Zarvo::Test
