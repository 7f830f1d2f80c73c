#include "concurrency/threadpool/pool_threads.h"

#include <algorithm>

namespace Orvane::Internal {

void PoolThreads::Add(Records& started) {
    const RankedLock lock(m_mutex);
    m_threads.splice(m_threads.end(), started);
}

void PoolThreads::MoveUnlessStopping(Records::iterator record, Records& records) {
    const RankedLock lock(m_mutex);
    if (!m_stopping) {
        records.splice(records.end(), m_threads, record);
    }
}

bool PoolThreads::HasCurrentThread() const {
    const RankedLock lock(m_mutex);
    return std::any_of(m_threads.begin(), m_threads.end(), [](const NativeThread& t) { return t.IsCurrentThread(); });
}

void PoolThreads::Stop() {
    const RankedLock lock(m_mutex);
    m_stopping = true;
}

void PoolThreads::JoinAll() {
    for (;;) {
        Records ending;
        {
            const RankedLock lock(m_mutex);
            if (m_threads.empty()) {
                return;
            }
            ending.splice(ending.end(), m_threads, m_threads.begin());
        }
        if (ending.front().IsJoinable()) {
            ending.front().Join();
        }
    }
}

}  // namespace Orvane::Internal
