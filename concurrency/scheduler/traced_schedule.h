// What a schedule does, for the trace: moments on the thread that does it.
//
// Threads: any. Errors: none.
#pragma once

#include <cstdint>

#include "concurrency/base/clock.h"
#include "concurrency/base/time.h"
#include "concurrency/base/trace.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

// 0 if the clock was set back. Unsigned: a start may lie as far back as time reaches.
inline long long MicrosecondsSince(const TimePoint& start, const TimePoint& now) noexcept {
    const auto ticks = [](const TimePoint& time) {
        return static_cast<std::uint64_t>(time.time_since_epoch().count());
    };
    constexpr std::uint64_t kTicksPerMicrosecond = 10;
    return now > start ? static_cast<long long>((ticks(now) - ticks(start)) / kTicksPerMicrosecond) : 0;
}

// The task is due: with how late the scheduler comes to it.
inline void TraceDue(const ScheduledTask& due) {
    if (IsTracing()) {
        Trace(TracePhase::Instant, "schedule", L"due",
              {{.key = "task", .text = due.GetTask().GetName()},
               {.key = "late_us", .number = MicrosecondsSince(due.GetStartTime(), WallClock::now())}});
    }
}

// It is left out this time: the run before has not ended.
inline void TraceSkip(const wchar_t* task) noexcept {
    if (IsTracing()) {
        Trace(TracePhase::Instant, "schedule", L"skip", {{.key = "task", .text = task}});
    }
}

}  // namespace Orvane::Internal
