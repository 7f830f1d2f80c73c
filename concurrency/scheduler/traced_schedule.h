// What a schedule does, for the trace: moments on the thread that does it.
//
// Threads: any. Errors: none.
#pragma once

#include <chrono>

#include "concurrency/base/clock.h"
#include "concurrency/base/trace.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

// The task is due: with how late the scheduler comes to it.
inline void TraceDue(const ScheduledTask& due) {
    if (IsTracing()) {
        const auto late = std::chrono::duration_cast<std::chrono::microseconds>(WallClock::now() - due.GetStartTime());
        Trace(TracePhase::Instant, "schedule", L"due",
              {{.key = "task", .text = due.GetTask().GetName()}, {.key = "late_us", .number = late.count()}});
    }
}

// It is left out this time: the run before has not ended.
inline void TraceSkip(const wchar_t* task) noexcept {
    if (IsTracing()) {
        Trace(TracePhase::Instant, "schedule", L"skip", {{.key = "task", .text = task}});
    }
}

}  // namespace Orvane::Internal
