// What the scheduler has done since the start of the process.
//
// Threads: any; counted on the scheduler's.
// Errors: std::system_error if the lock fails.
#pragma once

#include <cstddef>
#include <cstdint>

#include "concurrency/base/log_histogram.h"
#include "concurrency/base/time.h"

namespace Orvane::Internal {

struct ScheduleCounts {
    std::uint64_t skips = 0;  // runs that were due while the one before was under way or queued
    LogHistogram lateness;  // of those that came to their turn, in nanoseconds
};

// Nothing if the start is more than a day ago.
void CountDue(const TimePoint& start, const TimePoint& now);
void CountSkip();
ScheduleCounts CopyScheduleCounts();

// What stands in the schedule; nothing if there is no scheduler.
struct ScheduleLoad {
    std::size_t entries = 0;
    TimePoint earliest;  // if there are entries
};
ScheduleLoad ReadSchedule();

}  // namespace Orvane::Internal
