#include "concurrency/scheduler/scheduled_task_queue.h"

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/precise_wait.h"
#include "concurrency/base/report.h"
#include "concurrency/base/wait.h"

namespace Orvane::Internal {

ScheduledTaskQueue::ScheduledTaskQueue() = default;

ScheduledTaskQueue::~ScheduledTaskQueue() {
    std::vector<ScheduledTask> left;  // destroyed after the lock: user code
    try {
        const Guard lock(m_lock);
        left.reserve(m_heap.size());
        while (!m_heap.empty()) {
            left.push_back(TakeTop());
            if (!left.back().IsCancelled()) {
                ReportNoThrow(4, 16, L"Schedule", L"Active task %s still in schedule at destruction",
                              left.back().GetTask().GetName());
            }
        }
    } catch (const std::exception&) {
        ReportNoThrow(4, 16, L"Schedule", L"Failed to lock scheduledTask queue");
    }
}

void ScheduledTaskQueue::Push(const ScheduledTask& task) {
    bool isEarliest = false;
    {
        const Guard lock(m_lock);
        isEarliest = m_heap.empty() || m_heap.front() > task;
        m_heap.push_back(task);
        std::push_heap(m_heap.begin(), m_heap.end(), std::greater<>());
    }
    // Whoever comes later does not change how long the thread may sleep.
    if (isEarliest) {
        m_wake.notify_one();
    }
}

bool ScheduledTaskQueue::PopExpired(ScheduledTask& due) {
    const Guard lock(m_lock);
    if (m_heap.empty() || !m_heap.front().IsExpired()) {
        return false;
    }
    due = TakeTop();
    return true;
}

bool ScheduledTaskQueue::WaitForNextStart() {
    Guard lock(m_lock);
    if (m_stop) {
        return false;
    }
    if (m_heap.empty()) {
        m_wake.wait(lock.Native());
        return true;
    }
    const auto slice = NextSlice<WallClock>(m_heap.front().GetStartTime());
    if (slice > Duration::zero()) {
        PreciseWaitFor(m_wake, lock.Native(), slice);
    }
    return true;
}

void ScheduledTaskQueue::Stop() {
    {
        const Guard lock(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
}

// Needs m_lock.
ScheduledTask ScheduledTaskQueue::TakeTop() {
    std::pop_heap(m_heap.begin(), m_heap.end(), std::greater<>());
    ScheduledTask top = std::move(m_heap.back());
    m_heap.pop_back();
    return top;
}

}  // namespace Orvane::Internal
