#include "concurrency/jobs/stop_all.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/report.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job_registry.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/jobs/run_snapshot.h"
#include "concurrency/tasks/task_access.h"

namespace Orvane {

namespace {

using namespace Internal;
using Entries = std::vector<RunSnapshot::Entry>;

constexpr std::chrono::milliseconds kLongestNap{16};

AskReason ReasonFor(const wchar_t* why) noexcept {
    try {
        return {CancelCause::Stop, std::make_shared<const JobName>(why)};
    } catch (const std::bad_alloc&) {
        return {CancelCause::Stop, nullptr};
    }
}

// Both passes for all.
void AskAll(const AskReason& reason) noexcept {
    AskedList asked;
    AskJobs(reason, asked);
    TaskAccess::CancelTracked();
}

// Those that can leave: without the runs of this thread, and those that own them, which wait for this one.
void RemoveOwnRuns(Entries& runs) {
    std::vector<const void*> owners;
    const DWORD self = ::GetCurrentThreadId();
    std::erase_if(runs, [&owners, self](const RunSnapshot::Entry& run) {
        if (run.thread == self && run.owner != nullptr) {
            owners.push_back(run.owner);
        }
        return run.thread == self;
    });
    while (!owners.empty()) {
        const void* const owner = owners.back();
        owners.pop_back();
        std::erase_if(runs, [&owners, owner](const RunSnapshot::Entry& run) {
            if (run.record == owner && run.owner != nullptr) {
                owners.push_back(run.owner);
            }
            return run.record == owner;
        });
    }
}

Entries RunsToLeave(const RunSnapshot& snapshot) {
    Entries runs = snapshot.Entries();
    std::erase_if(runs, [](const RunSnapshot::Entry& run) {
        return run.askedAt == 0 || (run.future != nullptr && !run.isTracked);
    });
    RemoveOwnRuns(runs);
    return runs;
}

// In the time that the thread lives in.
void Nap(MonotonicClock::time_point until) {
    if (ThreadTime* const time = ThreadTime::OfThisThread()) {
        time->Block([] { return false; }, until);
    } else {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - MonotonicClock::now());
        ::Sleep(static_cast<DWORD>(
            (std::clamp)(left, std::chrono::milliseconds(0), std::chrono::milliseconds(1000)).count()));
    }
}

// A tracker's task does not know who has asked it.
RunInfo InfoOf(const RunSnapshot& snapshot, RunSnapshot::Entry run, const AskReason& reason) {
    if (run.isTracked && run.reason.cause == CancelCause::Task) {
        run.reason = reason;
    }
    return snapshot.Info(run, CoarseClock::Ticks());
}

}  // namespace

std::vector<RunInfo> StopAll(std::chrono::nanoseconds limit, const wchar_t* why) {
    const auto deadline = DeadlineAfter(limit);
    const AskReason reason = ReasonFor(why);
    AskAll(reason);
    // On purpose looks again and again instead of being told: it keeps no job, and what the jobs start while they leave, and
    // trackers' tasks, are found like the rest.
    for (std::chrono::milliseconds nap{1};; nap = (std::min)(2 * nap, kLongestNap)) {
        RunSnapshot snapshot;
        snapshot.CopyJobs();
        snapshot.CopyTasks();
        const Entries runs = RunsToLeave(snapshot);
        const auto now = ThreadNow();
        if (!runs.empty() && now < deadline) {
            Nap(deadline - now < nap ? deadline : now + nap);
            continue;
        }
        std::vector<RunInfo> late;
        for (const RunSnapshot::Entry& run : runs) {
            late.push_back(InfoOf(snapshot, run, reason));
            ReportNoThrow(4, 16, L"Concurrency.Job", L"StopAll() waits no longer for %s", ToText(late.back()).c_str());
        }
        return late;
    }
}

}  // namespace Orvane
