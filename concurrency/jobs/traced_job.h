// A job, for the trace: a span while it waits to be started, a span on its thread while it runs, and the request to leave.
//
// Threads: each of them on the thread that does it.
// Errors: none.
#pragma once

#include <cstdint>

#include "concurrency/base/trace.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/tasks/traced_run.h"

namespace Orvane::Internal {

class JobState;

// Of one job: whether the span of its waiting is open.
class TracedJobQueue {
  public:
    void Begin(const JobState& job) noexcept {
        if (IsTracing()) {
            WriteBegin(job);
        }
    }

    // Nothing unless it is open.
    void End(const JobState& job, const wchar_t* result) noexcept {
        if (m_isOpen) {
            WriteEnd(job, result);
        }
    }

  private:
    void WriteBegin(const JobState& job) noexcept;
    void WriteEnd(const JobState& job, const wchar_t* result) noexcept;

    bool m_isOpen = false;
};

void TraceJobBegins(TracedRun& run, const JobState& job);
void TraceJobEnds(TracedRun& run, const JobState& job) noexcept;

// On the thread that asks, with how the job is asked. The first request only.
void TraceJobAsked(const JobState& job, const AskReason& reason) noexcept;

}  // namespace Orvane::Internal
