// Watches and withholds the memory of this program's own code. Linking failing_memory.cpp replaces operator new.
#pragma once

#include <cstddef>

namespace Zarvo::Test {

// How often this thread has asked for memory.
std::size_t AllocationsOfThisThread() noexcept;

// While one lives, this thread gets no memory.
class NoMemory {
  public:
    NoMemory() noexcept;
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace Zarvo::Test
