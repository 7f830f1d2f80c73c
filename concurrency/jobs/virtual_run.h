// Tasks that run one at a time, in a fixed order, in virtual time.
//
// Each task has a thread of its own, its actor; the thread that made the run is the first actor. One actor at a time holds the
// baton and runs. It passes the baton on when it blocks in a wait of the library, and when its task has ended:
//
//   1. If waits are over, their actor that has been blocked longest gets it.
//   2. Else a new actor gets it, for the task that was started first.
//   3. Else time moves on to the next deadline or timer, whose work is done. Then it looks again.
//   4. Else nothing can ever end a wait: the first actor gets it, and its wait throws.
//
// Threads: the actors. What guards the fields is the baton, but for the hand-over itself.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>

#include "concurrency/base/condition.h"
#include "concurrency/base/last_words.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

class VirtualRun final : public ThreadTime {
  public:
    // Returns when the timer is to fire again; kNever to remove it.
    using Timer = std::function<MonotonicClock::time_point()>;
    static constexpr MonotonicClock::time_point kNever = (MonotonicClock::time_point::max)();

    VirtualRun();
    ~VirtualRun() override;

    // Null if the calling thread is none of a virtual run's.
    static VirtualRun* OfThisThread() noexcept;

    void Start(const Task& task);
    std::uint64_t AddTimer(MonotonicClock::time_point when, Timer timer);
    void RemoveTimer(std::uint64_t number) noexcept;

    MonotonicClock::time_point Now() override { return m_now; }

    // Errors: std::logic_error on the first actor's thread, if nothing can ever end the wait.
    void Block(const std::function<bool()>& isReady, MonotonicClock::time_point deadline) override;

    // Runs what can run without time passing.
    void RunUntilIdle();

    // Runs all tasks to their ends. Those that would wait for ever are cancelled.
    void RunToTheEnd() noexcept;

    MonotonicClock::duration Elapsed() const { return m_now.time_since_epoch(); }

  private:
    struct Actor {
        Task task;
        NativeThread thread;
        std::function<bool()> isReady;
        MonotonicClock::time_point deadline = kNever;
        bool isBlocked = false;
        bool hasBaton = false;
        bool isStuck = false;
        bool isAsked = false;
    };
    using Actors = std::list<Actor>;

    void PassOn();
    bool PassToReady();
    bool PassToNew();
    bool MoveTime();
    void Give(Actors::iterator actor);
    void AwaitBaton(Actor& actor);
    void RunActor(Actors::iterator actor, TaskNote& note);
    void CancelActors();
    [[noreturn]] void EndProcessOfDeafJob() const noexcept;

    MonotonicClock::time_point m_now;
    Actors m_actors;  // in the order in which they were blocked; the first actor is m_first
    Actors m_ended;
    Actors::iterator m_first;
    Actors::iterator m_current;
    std::list<Task> m_starts;
    struct TimerRecord {
        MonotonicClock::time_point when;
        Timer timer;
    };
    std::map<std::uint64_t, TimerRecord> m_timers;
    std::uint64_t m_lastTimer = 0;
    bool m_isHoldingTime = false;  // RunUntilIdle()

    RankedMutex<RecursiveMutex, LockRank::Leaf> m_mutex;  // the hand-over
    Condition m_handedOver;
    ThreadTime::Scope m_scope{*this};
};

}  // namespace Orvane::Internal
