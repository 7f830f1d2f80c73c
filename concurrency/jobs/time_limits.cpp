#include "concurrency/jobs/time_limits.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <map>

#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/base/wait.h"
#include "concurrency/jobs/asked_look.h"
#include "concurrency/jobs/virtual_run.h"

namespace Orvane::Internal {

namespace {

// How long the thread stays without a limit: starting one costs as much as a hundred limits.
constexpr std::chrono::seconds kStay{1};

constexpr MonotonicClock::time_point kNever = (MonotonicClock::time_point::max)();

// When the thread looks next for jobs that were asked and have not left: a tick of CoarseClock. Written under the thread's mutex.
//
// A job is asked first, then the request looks here; the thread writes here first, then looks for asked jobs. Both are
// sequentially consistent: so a request that relies on a look that is due is seen by that look.
constexpr std::uint64_t kNoLook = (std::numeric_limits<std::uint64_t>::max)();
constinit std::atomic<std::uint64_t> g_nextLook = kNoLook;

class LimitThread {
  public:
    void LookAt(std::uint64_t tick) {
        const RankedLock lock(m_mutex);
        if (!m_isRunning) {
            StartThread();
        }
        if (tick < g_nextLook) {
            g_nextLook = tick;
            m_wake.notify_one();
        }
    }

    TimeLimit Add(std::weak_ptr<Cancellable> target, MonotonicClock::time_point when,
                  std::shared_ptr<const LimitName> name) {
        Limits record;  // allocated before the lock
        record.emplace(TimeLimit{when, 0}, Limited{std::move(target), std::move(name)});
        auto node = record.extract(record.begin());
        const RankedLock lock(m_mutex);
        if (!m_isRunning) {
            StartThread();
        }
        const TimeLimit limit{when, ++m_lastNumber};
        node.key() = limit;
        const auto inserted = m_limits.insert(std::move(node)).position;
        if (inserted == m_limits.begin()) {
            m_wake.notify_one();
        }
        return limit;
    }

    void Remove(const TimeLimit& limit) noexcept {
        const RankedLock lock(m_mutex);
        m_limits.erase(limit);
    }

    void Stop() noexcept {
        RankedLock lock(m_mutex);
        m_isStopping = true;
        g_nextLook = kNoLook;
        m_wake.notify_all();
        while (m_isRunning) {
            m_left.wait(lock);
        }
        m_isStopping = false;
        if (m_thread.IsJoinable()) {
            m_thread.Join();
        }
    }

  private:
    using Mutex = RankedMutex<RecursiveMutex, LockRank::Leaf>;

    struct Limited {
        std::weak_ptr<Cancellable> target;
        std::shared_ptr<const LimitName> name;
    };
    using Limits = std::map<TimeLimit, Limited>;

    void StartThread() ORVANE_REQUIRES(m_mutex) {
        // The one before has said that it leaves, under the mutex: it takes no lock any more.
        if (m_thread.IsJoinable()) {
            m_thread.Join();
        }
        m_thread = NativeThread::Start([this] { Run(); }, "an exception has left the thread of the time limits");
        m_isRunning = true;
    }

    enum class Work { None, Limit, Look };

    void Run() {
        RankedLock lock(m_mutex);
        for (;;) {
            const Work work = WaitForWork(lock);
            if (work == Work::None) {
                break;
            }
            if (work == Work::Look) {
                Look(lock);
                continue;
            }
            const auto first = m_limits.begin();
            std::shared_ptr<Cancellable> target = first->second.target.lock();
            const std::shared_ptr<const LimitName> name = std::move(first->second.name);
            m_limits.erase(first);
            if (target) {
                const ReleasedLock released(lock, m_mutex);
                target->TimeIsUp(name);
                target.reset();  // here: it may be the last reference, to failures of a group, too
            }
        }
        m_isRunning = false;
        m_left.notify_all();
    }

    void Look(RankedLock<Mutex>& lock) ORVANE_REQUIRES(m_mutex) {
        g_nextLook = kNoLook;
        std::uint64_t next = kNoLook;
        {
            const ReleasedLock released(lock, m_mutex);
            next = m_look.ReportDue(CoarseClock::Ticks());
        }
        if (!m_isStopping && next < g_nextLook) {
            g_nextLook = next;
        }
    }

    // None if the thread is to leave.
    Work WaitForWork(RankedLock<Mutex>& lock) ORVANE_REQUIRES(m_mutex) {
        auto idleUntil = MonotonicClock::now() + kStay;
        while (!m_isStopping) {
            const auto now = MonotonicClock::now();
            const auto limit = m_limits.empty() ? kNever : m_limits.begin()->first.when;
            const auto look = WhenToLook(now);
            if (limit <= now) {
                return Work::Limit;
            }
            if (look <= now) {
                return Work::Look;
            }
            auto until = (std::min)(limit, look);
            if (until != kNever) {
                idleUntil = now + kStay;
            } else if (idleUntil <= now) {
                return Work::None;
            } else {
                until = idleUntil;
            }
            m_wake.wait_for(lock, NextSlice<MonotonicClock>(until));
        }
        return Work::None;
    }

    static MonotonicClock::time_point WhenToLook(MonotonicClock::time_point now) noexcept {
        const std::uint64_t look = g_nextLook;
        if (look == kNoLook) {
            return kNever;
        }
        const std::uint64_t tick = CoarseClock::Ticks();
        return tick >= look ? now : now + std::chrono::milliseconds(look - tick);
    }

    Mutex m_mutex;
    Condition m_wake;  // with m_mutex: there is a new earliest limit, or stopping
    Condition m_left;  // with m_mutex: the thread is not running
    Limits m_limits ORVANE_GUARDED_BY(m_mutex);
    std::uint64_t m_lastNumber ORVANE_GUARDED_BY(m_mutex) = 0;
    NativeThread m_thread ORVANE_GUARDED_BY(m_mutex);
    bool m_isRunning ORVANE_GUARDED_BY(m_mutex) = false;
    bool m_isStopping ORVANE_GUARDED_BY(m_mutex) = false;
    AskedLook m_look;  // of the thread
};

// Whether there is one: to make it may need memory, and the last uninitialisation must not.
constinit std::atomic<bool> g_isMade = false;

LimitThread& TheThread() {
    static NeverDestroyed<LimitThread> thread;
    g_isMade = true;
    return *thread;
}

}  // namespace

// Those of a virtual run have these numbers, and are its timers.
constexpr std::uint64_t kVirtual = std::uint64_t{1} << 63;

TimeLimit AddTimeLimit(std::weak_ptr<Cancellable> target, MonotonicClock::time_point when,
                       std::shared_ptr<const LimitName> name) {
    if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        const std::uint64_t number = run->AddTimer(when, [target = std::move(target), name = std::move(name)] {
            if (const auto live = target.lock()) {
                live->TimeIsUp(name);
            }
            return VirtualRun::kNever;
        });
        return {when, number | kVirtual};
    }
    return TheThread().Add(std::move(target), when, std::move(name));
}

void RemoveTimeLimit(const TimeLimit& limit) noexcept {
    if (limit.number == 0) {
        return;
    }
    if ((limit.number & kVirtual) == 0) {
        TheThread().Remove(limit);
    } else if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        run->RemoveTimer(limit.number & ~kVirtual);
    }
}

void WatchAsked() noexcept {
    if (ThreadTime::OfThisThread() != nullptr) {
        return;  // on purpose: in virtual time nothing is late
    }
    const std::uint64_t due = CoarseClock::Ticks() + AskedLook::kFirst;
    if (g_nextLook <= due) {
        return;
    }
    try {
        TheThread().LookAt(due);
    } catch (const std::exception& failure) {
        AskedLook::ReportLoss(failure.what());
    }
}

void StopTimeLimits() noexcept {
    if (g_isMade) {
        TheThread().Stop();
    }
}

}  // namespace Orvane::Internal
