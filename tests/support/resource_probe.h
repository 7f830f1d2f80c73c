// What this process holds of the system: to show that something gives back all it took.
//
//     UseTheLibraryOnce();  // what is made once per process is no leak
//     const ResourceProbe probe;
//     UseTheLibraryOften();
//     EXPECT_TRUE(Eventually([&] { return probe.Growth() == Resources{}; })) << probe.Growth();
//
// A thread that has been joined may still be counted for a moment, hence Eventually().
//
// Threads: blocks of all threads are counted; nothing else should run while it counts.
#pragma once

#include <cstdint>
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

}  // namespace Zarvo::Test
