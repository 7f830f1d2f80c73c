// What a process that runs schedules leaves behind for the one that has started it, in memory that both share; and the trace.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Schedules {

struct Report {
    // A decision that was not the first choice: at its event number `event`, `thread` was followed by `next`.
    struct Turn {
        std::uint32_t event;
        std::uint8_t thread;
        std::uint8_t next;
    };
    static constexpr std::size_t kMostTurns = 20'000;

    // Of the schedule that is under way, or that has failed.
    std::uint32_t decisions = 0;
    std::uint32_t turnCount = 0;
    Turn turns[kMostTurns]{};
    std::uint64_t seed = 0;  // 0: not chosen by one
    bool hasFailed = false;
    std::uint32_t length = 0;
    char text[8192]{};

    // Of the search.
    std::uint64_t schedules = 0;
    std::uint64_t restarts = 0;
    std::uint64_t diverged = 0;
    std::uint32_t mostPoints = 0;
    std::uint32_t mostThreads = 0;
    std::uint32_t mostDecisions = 0;
    int completeBound = -1;  // all schedules with so many preemptions were run
    std::uint64_t sampled = 0;  // of the schedules
    std::uint64_t leftBlocks = 0;
    std::uint64_t traces = 0;  // that differ
};

extern Report* g_report;

void AddToReport(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Keeps the steps of the schedule, to be printed when it ends.
void TraceFromNowOn();
void Trace(const char* what, const void* object, const void* where);
void PrintTrace();

// While the steps are kept: where each thread has used a block of memory last; the trace ends with the use of `block` by `thread`.
void TraceUse(const void* block, int thread);
void ShowUse(const void* block, int thread);

}  // namespace Schedules
