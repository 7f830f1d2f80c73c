#include "concurrency/scheduler/scheduled_task_queue.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <system_error>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/report.h"
#include "concurrency/base/wait.h"

namespace Orvane::Internal {

namespace {

// The system lengthens timed waits by about this much, so that wake-ups fall together. So the thread asks for less. Where
// the system adds nothing, it wakes too soon and waits once more for the rest.
constexpr Duration kSlack = std::chrono::microseconds(50);

}  // namespace

ScheduledTaskQueue::ScheduledTaskQueue() = default;

ScheduledTaskQueue::~ScheduledTaskQueue() {
    std::vector<ScheduledTask> left;  // destroyed after the lock: user code
    try {
        const RankedLock lock(m_lock);
        left.swap(m_heap);  // needs no memory: what is left is reported even when there is none
        for (auto end = left.end(); end != left.begin(); --end) {
            std::pop_heap(left.begin(), end, std::greater<>());
            const ScheduledTask& earliest = end[-1];
            if (!earliest.IsCancelled()) {
                ReportNoThrow(4, 16, L"Schedule", L"Active task %s still in schedule at destruction",
                              earliest.GetTask().GetName());
            }
        }
    } catch (const std::exception&) {
        ReportNoThrow(4, 16, L"Schedule", L"Failed to lock scheduledTask queue");
    }
}

void ScheduledTaskQueue::Push(ScheduledTask task) {
    bool wake = false;
    {
        const RankedLock lock(m_lock);
        // A task that is not the earliest does not change how long the thread may sleep. But if the thread sleeps although
        // the earliest is due, the clock was set forward or the machine was suspended.
        wake = m_heap.empty() || m_heap.front() > task || (m_wake.HasWaiters() && m_heap.front().IsExpired());
        m_heap.push_back(std::move(task));
        std::push_heap(m_heap.begin(), m_heap.end(), std::greater<>());
    }
    if (wake) {
        m_wake.notify_one();
    }
}

bool ScheduledTaskQueue::PopExpired(ScheduledTask& due) {
    const RankedLock lock(m_lock);
    if (m_heap.empty() || m_heap.front().GetStartTime() > m_lastDue || !m_heap.front().IsExpired()) {
        return false;
    }
    due = TakeTop();
    return true;
}

void ScheduledTaskQueue::PutBack(ScheduledTask task, const TimePoint& lastStart) {
    const bool movesOn = task.GetStartTime() > lastStart;
    if (!movesOn && IsStopped()) {
        task = ScheduledTask(task.GetTask(), (TimePoint::max)(), Duration::zero());
    }
    Push(std::move(task));
}

ScheduleLoad ScheduledTaskQueue::GetLoad() {
    const RankedLock lock(m_lock);
    return {m_heap.size(), m_heap.empty() ? TimePoint() : m_heap.front().GetStartTime()};
}

bool ScheduledTaskQueue::WaitForNextStart() {
    RankedLock lock(m_lock);
    if (m_stop) {
        return false;
    }
    if (m_heap.empty()) {
        m_wake.wait(lock);
        return true;
    }
    const auto slice = NextSlice<WallClock>(m_heap.front().GetStartTime());
    if (slice > Duration::zero()) {
        m_wake.wait_for(lock, slice > kSlack ? slice - kSlack : slice);
    }
    return true;
}

void ScheduledTaskQueue::Stop() {
    {
        const RankedLock lock(m_lock);
        m_stop = true;
        m_lastDue = (std::min)(m_lastDue, WallClock::now());  // the first stop counts
    }
    m_wake.notify_all();
}

bool ScheduledTaskQueue::IsStopped() {
    const RankedLock lock(m_lock);
    return m_stop;
}

// Needs m_lock.
ScheduledTask ScheduledTaskQueue::TakeTop() {
    std::pop_heap(m_heap.begin(), m_heap.end(), std::greater<>());
    ScheduledTask top = std::move(m_heap.back());
    m_heap.pop_back();
    return top;
}

}  // namespace Orvane::Internal
