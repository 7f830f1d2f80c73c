// A counter in memory that processes share, which can tell when an addition was begun and never completed.
//
// Threads: every member needs the lock that goes with the counter.
// Errors: std::system_error from the constructor.
// Lifetime: the memory is gone with the last object of its name, in whatever process.
#pragma once

#include <string>

#include "examples/shared_counter/handle.h"

namespace SharedCounter {

class Counter {
  public:
    // Zero when no other process has it yet.
    explicit Counter(const std::wstring& name);
    ~Counter();
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    // An addition in two steps: whoever dies between them leaves a counter that is not whole.
    void BeginAddition();
    void CompleteAddition();

    bool IsWhole() const;

    // Takes back an addition that was begun. Nothing for a counter that is whole.
    void Repair();

    long long Value() const;

  private:
    struct Memory {
        volatile long long value;
        volatile long long begun;  // ahead of `value` during an addition
    };

    const Handle m_mapping;
    Memory* const m_memory;
};

}  // namespace SharedCounter
