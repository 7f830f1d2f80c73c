#include "concurrency/lifetime/concurrency_lifetime.h"

#include <mutex>

#include "concurrency/base/initialization_count.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/cancellation/wait_event.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/figures/figures_reporter.h"
#include "concurrency/jobs/jobs_teardown.h"
#include "concurrency/lifetime/initialization_state.h"
#include "concurrency/scheduler/scheduler_teardown.h"
#include "concurrency/tasks/run_words.h"
#include "concurrency/threadpool/thread_pool_teardown.h"

namespace Orvane {

using Internal::g_initializationState;
using Internal::g_publishedInitializationCount;
using Internal::LifetimeMutex;
using Internal::RankedLock;

void ConcurrencyInitialize() {
    const RankedLock lock(LifetimeMutex());
    auto& state = g_initializationState;
    if (state.initCount == 0) {
        Internal::AllocateCurrentTaskSlot();
        Internal::AllowThreadPool();
        Internal::AllowJobs();
        Internal::StartFiguresReporter();
    }
    ++state.initCount;
    g_publishedInitializationCount = state.initCount;
}

void ConcurrencyUninitialize() {
    const RankedLock lock(LifetimeMutex());
    auto& state = g_initializationState;
    const bool isLast = state.initCount == 1 && !state.isTearingDown;
    if (isLast) {
        // On purpose before the count sinks: what is destroyed here may be a callable whose destructor initialises and
        // uninitialises for itself, on this thread. It shall find the library as it is.
        state.isTearingDown = true;
        Internal::BeginJobsTeardown();
        // The scheduler first: it queues into the pool, and must not wait there for a growth that has failed.
        Internal::GiveUpFailedGrowth();
        Internal::DestroyScheduler();
        Internal::DestroyThreadPool();
        Internal::EndJobsTeardown();
        Internal::StopFiguresReporter();
        Internal::CloseSpareEvents();
        state.isTearingDown = false;
    }
    --state.initCount;
    if (isLast && state.initCount <= 0) {
        Internal::FreeCurrentTaskSlot();
    } else if (isLast) {
        // What was destroyed has initialised the library anew.
        Internal::AllowThreadPool();
        Internal::AllowJobs();
        Internal::StartFiguresReporter();
    }
    g_publishedInitializationCount = state.initCount;
}

ConcurrencyLifetime::ConcurrencyLifetime() {
    ConcurrencyInitialize();
}

ConcurrencyLifetime::~ConcurrencyLifetime() noexcept {
    try {
        ConcurrencyUninitialize();
    } catch (...) {
        Internal::EndProcessInRun("the end of a ConcurrencyLifetime has failed");
    }
}

bool Internal::IsConcurrencyInitialized() {
    return g_publishedInitializationCount.load(std::memory_order_acquire) > 0;
}

}  // namespace Orvane
