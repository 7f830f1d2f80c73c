#include "concurrency/tasks/traced_run.h"

#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/clock.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

namespace {

struct TracedRuns {
    RankedMutex<AdaptiveMutex, LockRank::Leaf> mutex;
    IntrusiveList<TracedRun, TracedTag> runs ORVANE_GUARDED_BY(mutex);
    IntrusiveList<TracedWorker, TracedTag> workers ORVANE_GUARDED_BY(mutex);
};

// Without a destructor: the end of the process may have killed a thread that held it.
TracedRuns& Traced() noexcept {
    static NeverDestroyed<TracedRuns> traced;
    return *traced;
}

}  // namespace

void TracedRun::Begin(const char* category, const wchar_t* name, std::initializer_list<TraceArgument> arguments) {
    m_thread = ::GetCurrentThreadId();
    m_since = CoarseClock::Ticks();
    {
        TracedRuns& traced = Traced();
        const RankedLock lock(traced.mutex);
        m_category = category;
        m_name = name;
        traced.runs.PushBack(*this);
    }
    Trace(TracePhase::Begin, category, name, arguments);
}

void TracedRun::End(std::initializer_list<TraceArgument> arguments) {
    if (m_name == nullptr) {
        return;
    }
    Trace(TracePhase::End, m_category, m_name, arguments);
    const RankedLock lock(Traced().mutex);
    Unlink();
    m_name = nullptr;
}

const wchar_t* TracedRun::OutcomeOf(ITaskState& state) {
    const auto future = state.GetFuture();
    const auto* const own = dynamic_cast<const FutureState*>(future.get());
    if (own == nullptr) {
        return L"unknown";
    }
    // On purpose not the virtual operations: those of a derived future are code of others, which is not called here otherwise.
    if (own->FutureState::IsNormal()) {
        return L"returned";
    }
    if (own->FutureState::IsCancelled()) {
        return L"cancelled";
    }
    return own->FutureState::IsReady() ? L"failed" : L"none";
}

void TracedWorker::Begin() {
    TraceThreadName(L"Pool worker");
    m_thread = ::GetCurrentThreadId();
    TracedRuns& traced = Traced();
    const RankedLock lock(traced.mutex);
    traced.workers.PushBack(*this);
}

void TracedWorker::End() {
    const RankedLock lock(Traced().mutex);
    Unlink();
}

// On purpose under the list's lock: the names live as long as their runs are in the list. Runs begin and end a little later.
void TraceRunsOfWorkers() {
    const std::uint64_t now = CoarseClock::Ticks();
    TracedRuns& traced = Traced();
    const RankedLock lock(traced.mutex);
    for (const TracedRun* run = traced.runs.Front(); run != nullptr; run = traced.runs.Next(*run)) {
        for (const TracedWorker* worker = traced.workers.Front(); worker != nullptr;
             worker = traced.workers.Next(*worker)) {
            if (worker->Thread() == run->m_thread) {
                Trace(TracePhase::Instant, "pool", L"holds a worker",
                      {{.key = "run", .text = run->m_name},
                       {.key = "ms", .number = static_cast<long long>(now - run->m_since)},
                       {.key = "thread", .number = static_cast<long long>(run->m_thread)}});
            }
        }
    }
}

}  // namespace Orvane::Internal
