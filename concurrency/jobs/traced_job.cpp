#include "concurrency/jobs/traced_job.h"

#include <exception>
#include <string>

#include "concurrency/jobs/job_state.h"

namespace Orvane::Internal {

namespace {

const wchar_t* OutcomeOf(const JobState& job) noexcept {
    switch (job.Outcome()) {
        case JobOutcome::Done: return L"returned";
        case JobOutcome::Failed: return L"failed";
        case JobOutcome::Cancelled: return L"cancelled";
    }
    return L"";
}

// Empty without memory for it, too.
std::wstring TextOf(const AskReason& reason) noexcept {
    try {
        return HowAsked(reason.ForCallers());
    } catch (const std::exception&) {
        return {};
    }
}

// The group, or the run that owns the job; nothing if there is neither.
TraceArgument BelongsTo(const JobState& job) noexcept {
    const JobName* const above = job.Above().get();
    if (above == nullptr) {
        return {};
    }
    return {.key = job.Group() != nullptr ? "group" : "owner", .text = above->text.c_str()};
}

}  // namespace

void TracedJobQueue::WriteBegin(const JobState& job) noexcept {
    TraceSpanOf(&job, TracePhase::AsyncBegin, "job queue", job.Name(), {BelongsTo(job)});
    m_isOpen = true;
}

void TracedJobQueue::WriteEnd(const JobState& job, const wchar_t* result) noexcept {
    m_isOpen = false;
    TraceSpanOf(&job, TracePhase::AsyncEnd, "job queue", job.Name(), {{.key = "result", .text = result}});
}

void TraceJobBegins(TracedRun& run, const JobState& job) {
    if (IsTracing()) {
        run.Begin("job", job.Name(), {BelongsTo(job)});
    }
}

void TraceJobEnds(TracedRun& run, const JobState& job) noexcept {
    if (!run.HasBegun()) {
        return;
    }
    const std::wstring asked = TextOf(job.Reason());
    if (asked.empty()) {
        run.End({{.key = "outcome", .text = OutcomeOf(job)}});
    } else {
        run.End({{.key = "outcome", .text = OutcomeOf(job)}, {.key = "asked", .text = asked.c_str()}});
    }
}

void TraceJobAsked(const JobState& job, const AskReason& reason) noexcept {
    if (IsTracing()) {
        const std::wstring how = TextOf(reason);
        Trace(TracePhase::Instant, "job", L"asked",
              {{.key = "run", .text = job.Name()}, {.key = "how", .text = how.c_str()}});
    }
}

}  // namespace Orvane::Internal
