#include "concurrency/scheduler/scheduled_task.h"

#include <cstdint>

#include "concurrency/base/clock.h"

namespace Orvane::Internal {

ScheduledTask::ScheduledTask() : m_start(Duration::zero()), m_interval(Duration::zero()) {}

ScheduledTask::ScheduledTask(const Task& task, const TimePoint& start, const Duration& interval)
    : m_task(task), m_start(start), m_interval(interval) {}

ScheduledTask::ScheduledTask(const ScheduledTask&) = default;
ScheduledTask::ScheduledTask(ScheduledTask&&) noexcept = default;
ScheduledTask& ScheduledTask::operator=(const ScheduledTask&) = default;
ScheduledTask& ScheduledTask::operator=(ScheduledTask&&) noexcept = default;
ScheduledTask::~ScheduledTask() = default;

Task ScheduledTask::GetTask() const {
    return m_task;
}

TimePoint ScheduledTask::GetStartTime() const {
    return m_start;
}

bool ScheduledTask::IsExpired() const {
    return m_start <= WallClock::now();
}

bool ScheduledTask::IsRecurrent() const {
    return m_interval != Duration::zero();
}

bool ScheduledTask::IsCancelled() const {
    return m_task.IsCancelled();
}

void ScheduledTask::Cancel() {
    m_task.Cancel();
}

void ScheduledTask::Wait() {
    m_task.Wait();
}

bool ScheduledTask::Reschedule() {
    if (!IsRecurrent() || IsCancelled()) {
        return false;
    }
    // Unsigned: the extreme starts and intervals wrap instead of being undefined.
    const std::uint64_t next =
        static_cast<std::uint64_t>(m_start.time_since_epoch().count()) + static_cast<std::uint64_t>(m_interval.count());
    m_start = TimePoint(Duration(static_cast<std::int64_t>(next)));
    return true;
}

bool ScheduledTask::operator>(const ScheduledTask& other) const {
    return m_start > other.m_start;
}

}  // namespace Orvane::Internal
