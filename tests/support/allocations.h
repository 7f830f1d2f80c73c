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

enum class AskedBy { ThisThread, OtherThreads };

// While one lives, one allocation of operator new fails: the one with the given number, counted from 1, that the
// constructing thread asks for, or that all others do.
//
// Lifetime: one at a time.
class FailingNew {
  public:
    explicit FailingNew(int number, AskedBy askedBy = AskedBy::ThisThread);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    // Whether there were so many.
    bool HasFailed() const;
};

}  // namespace Zarvo::Test
