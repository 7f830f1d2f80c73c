// The memory of the program's own modules, counted and withheld: of the program, the library and the other DLLs beside
// it, the C++ runtime among them, which makes everything that comes from new.
//
// Blocks are not counted in the heap itself: a walk over a heap may show small ones only as the groups that they are cut
// from. Instead, the C runtime's functions are replaced where these modules import them, at the first use of anything
// below and for good. Numbers start from there: only differences mean anything, and a difference may be negative.
//
// Threads: any.
#pragma once

#include <cstdint>

namespace Zarvo::Test {

std::int64_t LiveBlocks();

// Without over-aligned blocks, whose size the runtime does not tell.
std::int64_t LiveBytes();

// While one lives, the constructing thread gets no memory.
//
// Lifetime: one at a time.
class NoMemory {
  public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace Zarvo::Test
