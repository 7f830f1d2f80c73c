#include "concurrency/jobs/pool_starter.h"

#include <list>
#include <mutex>
#include <utility>

#include "concurrency/base/native_thread.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/threadpool/global_pool_queue.h"

namespace Orvane::Internal {

namespace {

class Starter {
  public:
    struct Entry {
        Task task;
        std::function<void(const std::exception_ptr&)> failed;
    };
    using Entries = std::list<Entry>;

    void Queue(Entries entry) {
        const RankedLock lock(m_mutex);
        if (m_isClosed) {
            return;
        }
        if (!m_isRunning) {
            // The one before has said that it leaves, under the mutex: it takes no lock any more.
            if (m_thread.IsJoinable()) {
                m_thread.Join();
            }
            m_thread = NativeThread::Start([this] { Run(); });
            m_isRunning = true;
        }
        m_entries.splice(m_entries.end(), entry);
    }

    void Close() noexcept {
        Entries dropped;
        const RankedLock lock(m_mutex);
        m_isClosed = true;
        dropped.swap(m_entries);
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
        const RankedLock lock(m_mutex);
        m_isClosed = false;
    }

  private:
    void Run() {
        for (Entries entry; Take(entry); entry.clear()) {
            try {
                QueueOrFail(entry.front().task);
            } catch (...) {
                entry.front().failed(std::current_exception());
            }
        }
    }

    // Returns false if the thread is to leave.
    bool Take(Entries& entry) {
        const RankedLock lock(m_mutex);
        if (m_entries.empty()) {
            m_isRunning = false;
            return false;
        }
        entry.splice(entry.end(), m_entries, m_entries.begin());
        return true;
    }

    RankedMutex<std::mutex, LockRank::Leaf> m_mutex;
    Entries m_entries ORVANE_GUARDED_BY(m_mutex);
    NativeThread m_thread ORVANE_GUARDED_BY(m_mutex);
    bool m_isRunning ORVANE_GUARDED_BY(m_mutex) = false;
    bool m_isClosed ORVANE_GUARDED_BY(m_mutex) = false;
};

Starter& TheStarter() {
    static NeverDestroyed<Starter> starter;
    return *starter;
}

}  // namespace

void QueueInBackground(const Task& task, std::function<void(const std::exception_ptr&)> failed) {
    Starter::Entries entry;
    entry.push_back({task, std::move(failed)});
    TheStarter().Queue(std::move(entry));
}

void CloseStarter() noexcept {
    TheStarter().Close();
}

void JoinStarter() noexcept {
    TheStarter().Join();
}

}  // namespace Orvane::Internal
