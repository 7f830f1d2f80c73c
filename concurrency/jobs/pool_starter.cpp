#include "concurrency/jobs/pool_starter.h"

#include <atomic>
#include <chrono>
#include <list>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/wait.h"
#include "concurrency/tasks/noted_run.h"
#include "concurrency/threadpool/global_pool_queue.h"

namespace Orvane::Internal {

namespace {

// How long the thread stays without a task: a group that finds the pool full once mostly does so again.
constexpr std::chrono::seconds kStay{1};

// From CloseStarter() to JoinStarter(). Apart from the starter, which the last uninitialisation must not make: that may need
// memory.
constinit std::atomic<bool> g_isClosed = false;
constinit std::atomic<bool> g_isMade = false;

class Starter {
  public:
    struct Entry {
        Task task;
        std::function<void(const std::exception_ptr&)> failed;
    };
    using Entries = std::list<Entry>;

    void Queue(Entries entry) {
        const RankedLock lock(m_mutex);
        if (g_isClosed) {
            return;
        }
        if (!m_isRunning) {
            // The one before has said that it leaves, under the mutex: it takes no lock any more.
            if (m_thread.IsJoinable()) {
                m_thread.Join();
            }
            m_thread = NativeThread::Start([this](TaskNote& note) { Run(note); },
                                           "an exception has left the thread that waits for the pool to grow");
            m_isRunning = true;
        }
        m_entries.splice(m_entries.end(), entry);
        m_wake.notify_one();
    }

    void Close() noexcept {
        Entries dropped;
        const RankedLock lock(m_mutex);
        dropped.swap(m_entries);
        m_wake.notify_one();
    }

    void Join() noexcept {
        NativeThread thread;
        {
            const RankedLock lock(m_mutex);
            thread = std::move(m_thread);
        }
        if (thread.IsJoinable()) {
            thread.Join();
        }
    }

  private:
    void Run(TaskNote& note) {
        for (Entries entry; Take(entry); entry.clear()) {
            WithNote(entry.front().task, note, [&] { Start(entry.front()); });
        }
    }

    static void Start(const Entry& entry) {
        try {
            QueueOrFail(entry.task);
        } catch (...) {
            entry.failed(std::current_exception());
        }
    }

    // Returns false if the thread is to leave.
    bool Take(Entries& entry) {
        const auto idleUntil = MonotonicClock::now() + kStay;
        RankedLock lock(m_mutex);
        WaitUntil<MonotonicClock>(m_wake, lock, idleUntil,
                                  [this]() ORVANE_REQUIRES(m_mutex) { return !m_entries.empty() || g_isClosed; });
        if (m_entries.empty()) {
            m_isRunning = false;
            return false;
        }
        entry.splice(entry.end(), m_entries, m_entries.begin());
        return true;
    }

    RankedMutex<RecursiveMutex, LockRank::Leaf> m_mutex;
    Entries m_entries ORVANE_GUARDED_BY(m_mutex);
    NativeThread m_thread ORVANE_GUARDED_BY(m_mutex);
    Condition m_wake;  // with m_mutex: there is a task, or closed
    bool m_isRunning ORVANE_GUARDED_BY(m_mutex) = false;
};

Starter& TheStarter() {
    static NeverDestroyed<Starter> starter;
    g_isMade = true;
    return *starter;
}

}  // namespace

void QueueInBackground(const Task& task, std::function<void(const std::exception_ptr&)> failed) {
    Starter::Entries entry;
    entry.push_back({task, std::move(failed)});
    TheStarter().Queue(std::move(entry));
}

void CloseStarter() noexcept {
    g_isClosed = true;
    if (g_isMade) {
        TheStarter().Close();
    }
}

void JoinStarter() noexcept {
    if (g_isMade) {
        TheStarter().Join();
    }
    g_isClosed = false;
}

}  // namespace Orvane::Internal
