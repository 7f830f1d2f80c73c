// A run of a task as the library keeps it: what it is cancelled through, its companion, and what is told of it to those who
// ask what runs. Every cancellation object that a future makes is one.
//
// Threads: any, but for what the fields say.
// Lifetime: as its cancellation object. A thread that reads a note keeps the run meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "concurrency/base/clock.h"
#include "concurrency/base/tick_counter.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/run_companion.h"
#include "concurrency/cancellation/wait_note.h"

namespace Orvane::Internal {

class FutureState;
struct TimeLimitDetails;

class Run : public CancellationObject {
  public:
    // On the thread that runs it.
    static std::shared_ptr<CancellationObject> Make() { return std::shared_ptr<Run>(new Run(), Deleter()); }

    // Null if the object is none that a future has made: a derived future may answer with its own.
    static Run* Of(const std::shared_ptr<CancellationObject>& object) noexcept {
        return std::get_deleter<Deleter>(object) != nullptr ? static_cast<Run*>(object.get()) : nullptr;
    }

    DWORD ThreadId() const noexcept { return m_thread; }

    std::atomic<std::shared_ptr<RunCompanion>> companion;

    // Of a nested run (jobs/within.h): the one around it. Constant once the thread is in it.
    bool isNested = false;
    std::weak_ptr<FutureState> outer;

    // The time limit that asked it first. Written before the request sets the flag.
    std::shared_ptr<const TimeLimitDetails> limit;

    // What the run's thread waits in: others read this one.
    WaitNote ownNote;

    // Where its thread writes: its own, or that of the run that it is a part of. For the run's thread alone.
    WaitNote* note = &ownNote;

    // Ticks of CoarseClock. The second one is 0 until the run is asked; written before the request reaches the run.
    const std::uint64_t startedAt = CoarseClock::Ticks();
    std::atomic<std::uint64_t> askedAt = 0;

    // The same in ticks of TickCounter, for what is counted of the run (tasks/run_counts.h).
    const std::uint64_t startTick = TickCounter::Now();
    std::atomic<std::uint64_t> askedTick = 0;

  private:
    struct Deleter {
        void operator()(Run* run) const noexcept { delete run; }
    };

    Run() : m_thread(GetThreadId()) {}
    ~Run() = default;

    const DWORD m_thread;
};

}  // namespace Orvane::Internal
