#include "bench/peers/bare_deque_pool.h"

namespace Zarvo::Bench {

BareDequePool::BareDequePool(std::size_t workers) {
    for (std::size_t i = 0; i < workers; ++i) {
        m_workers.emplace_back([this] { RunWorker(); });
    }
}

BareDequePool::~BareDequePool() {
    AcquireSRWLockExclusive(&m_lock);
    m_stopping = true;
    ReleaseSRWLockExclusive(&m_lock);
    WakeAllConditionVariable(&m_workAvailable);
    for (Test::Thread& worker : m_workers) {
        worker.join();
    }
}

void BareDequePool::Submit(Function function, void* argument) {
    AcquireSRWLockExclusive(&m_lock);
    m_queue.push_back({function, argument});
    ReleaseSRWLockExclusive(&m_lock);
    WakeConditionVariable(&m_workAvailable);
}

void BareDequePool::RunWorker() {
    AcquireSRWLockExclusive(&m_lock);
    for (;;) {
        while (m_queue.empty()) {
            if (m_stopping) {
                ReleaseSRWLockExclusive(&m_lock);
                return;
            }
            SleepConditionVariableSRW(&m_workAvailable, &m_lock, INFINITE, 0);
        }
        const Entry entry = m_queue.front();
        m_queue.pop_front();
        ReleaseSRWLockExclusive(&m_lock);
        entry.function(entry.argument);
        AcquireSRWLockExclusive(&m_lock);
    }
}

}  // namespace Zarvo::Bench
