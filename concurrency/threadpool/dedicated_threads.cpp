#include "concurrency/threadpool/dedicated_threads.h"

#include <chrono>
#include <future>
#include <new>
#include <system_error>
#include <utility>

#include "concurrency/base/module_function.h"
#include "concurrency/base/trace.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/noted_run.h"

namespace Orvane::Internal {

namespace {

// How long a launch waits for a thread whose task has returned to end.
constexpr std::chrono::milliseconds kReapWait{200};

// Shows the task's name in debuggers, where the platform can.
void Describe(const NativeThread& thread, const Task& task) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const auto setDescription = FindFunction<SetDescription>(L"kernel32", "SetThreadDescription");
    if (setDescription != nullptr) {
        setDescription(thread.GetHandle(), task.GetName());
    }
}

// In GCC's posix thread model a lock takes memory when it is first used: here the promise's does, and not when it is kept.
void UseOnce(std::future<int>& completion) {
    try {
        completion.wait_for(std::chrono::seconds::zero());
    } catch (const std::system_error&) {
        throw std::bad_alloc();
    }
}

}  // namespace

void DedicatedThreads::Launch(const Task& task, std::shared_ptr<void> owner) {
    const RankedLock launchLock(m_launchMutex);
    JoinEnded();

    // Every node is allocated before the thread runs: from then on nothing may fail.
    PromiseMap promise;
    auto completion = promise[0].get_future();
    UseOnce(completion);
    std::map<DWORD, std::future<int>> future;
    future.emplace(0, std::move(completion));
    while (m_dedicatedThreads.contains(m_nextDedicatedNumber)) {
        ++m_nextDedicatedNumber;  // it has gone round, and that thread still runs
    }
    const std::uint32_t number = m_nextDedicatedNumber;
    Records record(1);
    std::map<std::uint32_t, Records::iterator> dedicated{{number, record.begin()}};
    record.front() = NativeThread::Start(
        [this, keptOwner = std::move(owner), number, copy = task,
         node = promise.extract(promise.begin())](TaskNote& note) mutable { Run(number, copy, std::move(node), note); },
        "an exception has left a dedicated thread");

    Describe(record.front(), task);
    auto node = future.extract(future.begin());
    node.key() = record.front().GetId();
    m_completionFutures.insert(std::move(node));
    m_threads.Add(record);
    m_dedicatedThreads.merge(dedicated);
    ++m_nextDedicatedNumber;
}

void DedicatedThreads::Run(std::uint32_t number, Task& task, PromiseMap::node_type promise, TaskNote& note) {
    TraceThreadName(task.GetName());
    WithNote(task, note, [&] { task(); });
    task = Task();  // before any lock: may destroy the user's callable
    MarkFinished(number);
    promise.mapped().set_value(1);
    promise.key() = ::GetCurrentThreadId();
    const RankedLock lock(m_exitMutex);
    m_exitedPromises.insert(std::move(promise));
}

void DedicatedThreads::MarkFinished(std::uint32_t number) {
    const RankedLock launchLock(m_launchMutex);
    const auto entry = m_dedicatedThreads.find(number);
    m_threads.MoveUnlessStopping(entry->second, m_finishedThreads);
    m_dedicatedThreads.erase(entry);
}

void DedicatedThreads::AwaitLaunch() {
    const RankedLock launchLock(m_launchMutex);
}

// Only threads that have ended altogether: the destructors of thread-local objects may launch, and would wait for the
// launch mutex.
void DedicatedThreads::JoinEnded() {
    auto next = m_finishedThreads.begin();
    while (next != m_finishedThreads.end()) {
        const auto record = next++;
        if (!record->IsCurrentThread() && Ends(*record)) {
            JoinAndForget(record);
        }
    }
}

// Whether the thread ends within kReapWait. Its end implies that it has handed its promise back.
bool DedicatedThreads::Ends(const NativeThread& thread) {
    if (!m_completionFutures.contains(thread.GetId())) {
        throw std::future_error(std::future_errc::no_state);
    }
    return thread.EndsWithin(kReapWait);
}

void DedicatedThreads::JoinFinished() {
    const RankedLock launchLock(m_launchMutex);
    auto next = m_finishedThreads.begin();
    while (next != m_finishedThreads.end()) {
        const auto record = next++;
        if (record->IsJoinable()) {
            JoinAndForget(record);
        }
    }
}

void DedicatedThreads::JoinAndForget(Records::iterator record) {
    const DWORD id = record->GetId();
    record->Join();
    m_completionFutures.erase(id);
    {
        const RankedLock lock(m_exitMutex);
        m_exitedPromises.erase(id);
    }
    m_finishedThreads.erase(record);
}

}  // namespace Orvane::Internal
