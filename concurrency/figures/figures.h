// What the library does and has done, as figures: for a page of your service's own, a log, a person who asks why it is slow.
//
//     std::wcout << Orvane::ToText(Orvane::GetFigures());
//
// Threads: any, inside a run too.
// Cancellation: none.
// Errors: std::bad_alloc, std::system_error.
// Memory: each number is as it was at one moment of the call; two numbers need not be of the same moment. A run is counted before
//     a wait for it returns.
// Lifetime: also before the first initialisation and after the last uninitialisation. The totals go on from the one to the next.
// Cost: some milliseconds at the first call, then some microseconds, and about two for each run. It holds up no run for longer
//     than it takes to copy 2 KB, and as ListRuns() says.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/jobs/runs.h"

namespace Orvane {

// How long something took, each time that it happened since the start of the process.
//
// Contract: a value.
struct TimeFigures {
    // How often.
    std::uint64_t count = 0;

    // The mean and the greatest are exact, the percentiles are right to a quarter.
    std::chrono::nanoseconds mean{};
    std::chrono::nanoseconds p50{};
    std::chrono::nanoseconds p99{};
    std::chrono::nanoseconds max{};
};

// The pool. All zeros if there is none.
//
// Contract: a value.
struct PoolFigures {
    // Threads of the pool, and those of them that run nothing.
    std::uint64_t workers = 0;
    std::uint64_t idle = 0;

    // Tasks that no worker has taken yet, and for how long the oldest of them has been in the queue, in steps of some 16 ms. Jobs
    // that wait for a place in their group are not in the queue.
    std::uint64_t queued = 0;
    std::chrono::milliseconds oldestQueued{};

    // Since the start of the process: batches of workers that were added because the pool was full, and those that failed. After
    // one that failed, the pool never grows again.
    std::uint64_t growths = 0;
    std::uint64_t failedGrowths = 0;
};

// The scheduler.
//
// Contract: a value.
struct ScheduleFigures {
    // What stands in the schedule, and when the first of it is due.
    std::size_t entries = 0;
    std::optional<TimePoint> earliest;

    // Since the start of the process: runs that were skipped because the one before had not ended.
    std::uint64_t skipped = 0;

    // From the due time until the scheduler came to it, for each turn since the start of the process. One that was due more than
    // a day before is not counted.
    TimeFigures lateness;
};

// The runs of one name since the start of the process. The digits in a name count as one '#': "Fetch 17" and "Fetch 18" are both
// counted as "Fetch #". At most 29 characters of a name are kept. Names for which there is no room are "(others)".
//
// Contract: a value.
struct NameFigures {
    // As in "Fetch #".
    std::wstring name;

    // How the runs have ended. A job that was cancelled before it began counts as cancelled; a task does not.
    std::uint64_t done = 0;
    std::uint64_t failed = 0;
    std::uint64_t cancelled = 0;

    // From the call that queued it, or added it to its group, until it began; without those that were not queued.
    TimeFigures waited;

    // From its beginning to its end.
    TimeFigures ran;

    // From the first request to leave until its end; of those that were asked while they ran.
    TimeFigures left;
};

// What GetFigures() returns.
//
// Contract: a value.
struct Figures {
    // The pool and the scheduler.
    PoolFigures pool;
    ScheduleFigures schedule;

    // The sums over all names.
    std::uint64_t done = 0;
    std::uint64_t failed = 0;
    std::uint64_t cancelled = 0;

    // Failures that went to the failure handler (concurrency/tasks/failure_handler.h).
    std::uint64_t unreadFailures = 0;

    // Those that have run longest in all first.
    std::vector<NameFigures> names;

    // What runs now, as ListRuns() has it.
    std::vector<RunInfo> runs;
};

// All figures of the process.
ORVANE_CONCURRENCY_API Figures GetFigures();

// For people: a line each for the pool, the schedule and the totals, then one for each name and one for each run.
ORVANE_CONCURRENCY_API std::wstring ToText(const Figures& figures);

// The same in one line, without names and without all runs but the oldest.
ORVANE_CONCURRENCY_API std::wstring ToLine(const Figures& figures);

}  // namespace Orvane
