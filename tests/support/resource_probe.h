// What this process holds of the system: to show that something gives back all it took.
//
//     EXPECT_EQ(GrowthOver(50, UseTheLibrary), Resources{});
//
// Threads: blocks of all threads are counted; nothing else should run while it counts.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>

namespace Zarvo::Test {

struct Resources {
    std::int64_t handles = 0;
    std::int64_t threads = 0;
    std::int64_t blocks = 0;  // of memory: see allocations.h
    std::int64_t bytes = 0;   // in these blocks

    // Errors: std::runtime_error if the system does not tell.
    static Resources Now();

    friend bool operator==(const Resources&, const Resources&) = default;
    friend Resources operator-(const Resources& left, const Resources& right);
};

std::ostream& operator<<(std::ostream& stream, const Resources& resources);

class ResourceProbe {
  public:
    ResourceProbe() : m_start(Resources::Now()) {}

    // What the process holds more than at construction.
    Resources Growth() const { return Resources::Now() - m_start; }

  private:
    Resources m_start;
};

// What `times` uses leave behind for good, after one that is not counted: a thread that has been joined may still be seen for a moment.
// What is made once per process is no leak, and some of that comes when chance wants it: winpthreads keeps an event from the moment on
// that two threads first want its list of threads. So a growth must show three times; a leak does.
// `patience` is for the threads that are still to go. Errors: as of Resources::Now(), and what `use` throws.
Resources GrowthOver(int times, const std::function<void()>& use,
                     std::chrono::milliseconds patience = std::chrono::seconds(10));

}  // namespace Zarvo::Test
