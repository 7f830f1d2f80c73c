#include <chrono>
#include <future>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/module_function.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/threadpool/thread_pool.h"

namespace Orvane::Internal {

namespace {

// How long reaping waits for a thread that has finished its task to hand its promise back and to end.
constexpr std::chrono::nanoseconds kReapWait{200'000'000};

// Shows the task's name in debuggers, where the platform can.
void Describe(const NativeThread& thread, const Task& task) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const auto setDescription = FindFunction<SetDescription>(L"kernel32", "SetThreadDescription");
    if (setDescription != nullptr) {
        setDescription(thread.GetHandle(), task.GetName());
    }
}

bool IsReady(const std::future<int>& future) {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace

void ThreadPoolCore::LaunchInNewThread(const Task& task) {
    const RankedLock launchLock(m_launchMutex);
    ReapFinished(Reap::kIfEnded);

    // Every node is allocated before the thread runs: from then on nothing may fail.
    PromiseMap promise;
    auto completion = promise[0].get_future();
    std::map<DWORD, std::future<int>> future;
    future.emplace(0, std::move(completion));
    while (m_dedicatedThreads.contains(m_nextDedicatedNumber)) {
        ++m_nextDedicatedNumber;  // it has gone round, and that thread still runs
    }
    const std::uint32_t number = m_nextDedicatedNumber;
    ThreadList record(1);
    std::map<std::uint32_t, ThreadList::iterator> dedicated{{number, record.begin()}};
    record.front() = NativeThread::Start(
        [core = shared_from_this(), number, copy = task, node = promise.extract(promise.begin())]() mutable {
            core->RunDedicated(number, std::move(copy), std::move(node));
        });

    Describe(record.front(), task);
    auto node = future.extract(future.begin());
    node.key() = record.front().GetId();
    m_completionFutures.insert(std::move(node));
    {
        const RankedLock lock(m_mutex);
        m_threads.splice(m_threads.end(), record);
    }
    m_dedicatedThreads.merge(dedicated);
    ++m_nextDedicatedNumber;
}

void ThreadPoolCore::RunDedicated(std::uint32_t number, Task task, PromiseMap::node_type promise) noexcept {
    task();
    task = Task();  // before any lock: may destroy the user's callable
    MarkFinished(number);
    promise.mapped().set_value(1);
    promise.key() = ::GetCurrentThreadId();
    const RankedLock lock(m_exitMutex);
    m_exitedPromises.insert(std::move(promise));
}

void ThreadPoolCore::MarkFinished(std::uint32_t number) {
    const RankedLock launchLock(m_launchMutex);
    const auto entry = m_dedicatedThreads.find(number);
    {
        // Under one hold: once stopping, shutdown goes through m_threads and must find the record there.
        const RankedLock lock(m_mutex);
        if (!m_stopping) {
            m_finishedThreads.splice(m_finishedThreads.end(), m_threads, entry->second);
        }
    }
    m_dedicatedThreads.erase(entry);
}

// Needs m_launchMutex. Its threads have left their own use of that lock, but the destructors of their thread-local objects
// may launch: a launch joins only who has ended altogether.
void ThreadPoolCore::ReapFinished(Reap mode) {
    auto next = m_finishedThreads.begin();
    while (next != m_finishedThreads.end()) {
        const auto record = next++;
        const bool skip = mode == Reap::kWait ? !record->IsJoinable() : record->IsCurrentThread() || !HasEnded(*record);
        if (skip) {
            continue;
        }
        const DWORD id = record->GetId();
        if (mode == Reap::kWait) {
            record->Join();
        }
        m_completionFutures.erase(id);
        {
            const RankedLock lock(m_exitMutex);
            m_exitedPromises.erase(id);
        }
        if (mode == Reap::kIfEnded) {
            record->Join();
        }
        const RankedLock lock(m_mutex);
        m_finishedThreads.erase(record);
    }
}

// Needs m_launchMutex. Whether the thread has reported its end and ended, or does so within kReapWait.
bool ThreadPoolCore::HasEnded(const NativeThread& thread) {
    const auto found = m_completionFutures.find(thread.GetId());
    if (found == m_completionFutures.end()) {
        throw std::future_error(std::future_errc::no_state);
    }
    // Asked again and again instead of waited for: the standard wait would measure with a clock that may step.
    const auto deadline = MonotonicClock::now() + kReapWait;
    while (!IsReady(found->second) || thread.IsRunning()) {
        if (MonotonicClock::now() >= deadline) {
            return false;
        }
        ::Sleep(1);
    }
    return true;
}

}  // namespace Orvane::Internal
