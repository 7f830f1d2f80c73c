// The fields of the scheduler's public classes, reached through friendship.
#pragma once

#include <cstddef>
#include <cstdint>

#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/scheduler/tracker_impl.h"

namespace Orvane::Internal {

struct FieldOrder {
    static std::ptrdiff_t OfTask(const ScheduledTask& task) { return Offset(task, &task.m_task); }
    static std::ptrdiff_t OfStart(const ScheduledTask& task) { return Offset(task, &task.m_start); }
    static std::ptrdiff_t OfInterval(const ScheduledTask& task) { return Offset(task, &task.m_interval); }

    static std::ptrdiff_t OfTaskSet(const TrackerImpl& tracker) { return Offset(tracker, &tracker.m_isTaskSet); }
    static std::ptrdiff_t OfStarted(const TrackerImpl& tracker) { return Offset(tracker, &tracker.m_runsStarted); }
    static std::ptrdiff_t OfFinished(const TrackerImpl& tracker) { return Offset(tracker, &tracker.m_runsFinished); }

    static Duration Interval(const ScheduledTask& task) { return task.m_interval; }

    // The task and the times that a tracker keeps, as they were handed to it.
    static const ScheduledTask& Scheduled(const TrackerImpl& tracker) { return tracker; }
    static bool IsTaskSet(const TrackerImpl& tracker) { return tracker.m_isTaskSet; }
    static std::uint32_t Started(const TrackerImpl& tracker) { return tracker.m_runsStarted; }
    static std::uint32_t Finished(const TrackerImpl& tracker) { return tracker.m_runsFinished; }

  private:
    template <typename Object>
    static std::ptrdiff_t Offset(const Object& object, const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&object);
    }
};

}  // namespace Orvane::Internal
