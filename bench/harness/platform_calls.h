// How often the program, the library and the C++ runtime ask the platform for memory, locks and wake-ups.
//
// Counted where they import those functions, for as long as the object lives. Spinning in the standard library (the
// lock inside std::atomic<std::shared_ptr>) and what the platform does by itself are not seen.
//
// Threads: one object at a time; the calls of all threads are counted.
// Errors: std::runtime_error if none of the modules imports one of the functions: a zero would then mean nothing.
#pragma once

#include <cstdint>
#include <list>

#include "tests/support/import_patch.h"

namespace Zarvo::Bench {

struct CallCounts {
    std::int64_t allocations = 0;
    std::int64_t bytes = 0;    // asked for in these allocations
    std::int64_t locks = 0;    // EnterCriticalSection and a successful TryEnterCriticalSection
    std::int64_t wakeUps = 0;  // WakeConditionVariable, WakeAllConditionVariable
    std::int64_t sleeps = 0;   // SleepConditionVariableCS
};

CallCounts operator-(const CallCounts& after, const CallCounts& before);

class PlatformCalls {
  public:
    PlatformCalls();
    PlatformCalls(const PlatformCalls&) = delete;
    PlatformCalls& operator=(const PlatformCalls&) = delete;

    CallCounts Now() const;

  private:
    template <typename Function>
    void Count(const char* name, Function* counting, Function*& original);

    std::list<Test::ImportPatch> m_patches;
};

}  // namespace Zarvo::Bench
