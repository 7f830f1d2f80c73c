// The schedules of a group.
#include <type_traits>
#include <utility>

#include "concurrency/base/report.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/group_core.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/virtual_run.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/scheduler/traced_schedule.h"
#include "concurrency/tasks/make_task.h"

namespace Orvane::Internal {

void GroupCore::AddSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start,
                            const Duration& delay, const Duration& interval) {
    std::list<std::shared_ptr<GroupSchedule>> node{schedule};
    {
        const RankedLock lock(m_mutex);
        EnlistOnce();
        NoteModule(schedule->work.Module());
        if (m_reason.cause != CancelCause::None) {
            return;
        }
        m_schedules.splice(m_schedules.end(), node);
        schedule->isActive = true;
        ++m_activeSchedules;
    }
    try {
        StartSchedule(schedule, start, delay, interval);
    } catch (...) {
        const RankedLock lock(m_mutex);
        EndSchedule(*schedule);
        m_schedules.remove(schedule);
        throw;
    }
    CancelEnded(*schedule);
}

void GroupCore::StartSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start,
                              const Duration& delay, const Duration& interval) {
    // Weakly: the schedule has the task.
    const auto runOnce = [group = weak_from_this(), weak = std::weak_ptr<GroupSchedule>(schedule)] {
        const auto self = group.lock();
        const auto due = weak.lock();
        return self && due && self->RunScheduled(due);
    };
    if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        run->AddTimer(DeadlineAfter(ToNanoseconds(delay)), [runOnce, interval] {
            const bool goesOn = runOnce() && interval > Duration::zero();
            return goesOn ? DeadlineAfter(ToNanoseconds(interval)) : VirtualRun::kNever;
        });
        return;
    }
    const Task task = MakeTask(m_name->text.c_str(), runOnce);
    {
        const RankedLock lock(m_mutex);
        schedule->task = task;
    }
    GlobalScheduler::Insert({task, start, ScheduleAccess::WithinTime(start, interval)});
}

// Needs m_mutex. Its task is cancelled later, without the lock.
void GroupCore::EndSchedule(GroupSchedule& schedule) {
    if (std::exchange(schedule.isActive, false)) {
        --m_activeSchedules;
        if (Left() == 0) {
            SignalAll(m_readers);
            SignalAll(m_listeners);
        }
    }
}

// Nothing if it is active still.
void GroupCore::CancelEnded(GroupSchedule& schedule) noexcept {
    Task task;
    {
        const RankedLock lock(m_mutex);
        if (!schedule.isActive) {
            task = schedule.task;
        }
    }
    try {
        task.Cancel();
    } catch (const CancelRequestedException&) {  // NOLINT(bugprone-empty-catch)
        // In its own run, which only adds a job: it is cancelled, and goes on to its end.
    }
}

// On a worker, when a run is due. It does no more than add a job, so that no thread ever has to wait for it.
// Returns whether the schedule is active.
bool GroupCore::RunScheduled(const std::shared_ptr<GroupSchedule>& schedule) {
    Departure departure;  // the group does not go while a run is being added
    bool isSkipped = false;
    Task task;
    {
        const RankedLock lock(m_mutex);
        if (!schedule->isActive) {
            return false;
        }
        isSkipped = std::exchange(schedule->isUnderWay, true);
        task = schedule->task;
        departure.name = schedule->name;
        departure.since = ThreadNow();
        m_departures.PushBack(departure);
    }
    AddRun(schedule, task, isSkipped);
    Departs(departure);
    return true;
}

void GroupCore::AddRun(const std::shared_ptr<GroupSchedule>& schedule, Task& task, bool isSkipped) noexcept {
    if (schedule->isRecurrent) {
        task.Reset();  // for its next run
    }
    if (isSkipped) {
        TraceSkip(schedule->name->text.c_str());
        ReportNoThrow(4, 4, L"Concurrency.Job", L"Job [%s] skips a run: the one before has not ended",
                      schedule->name->text.c_str());
        return;
    }
    try {
        const auto work = [schedule] { schedule->work(); };
        const auto job = Make(schedule->name->text.c_str(), JobBody<std::remove_const_t<decltype(work)>>::Type(),
                              schedule->work.Module());
        ::new (job->Body()) JobBody<std::remove_const_t<decltype(work)>>(work);
        job->MarkBuilt();
        job->SetReader(JobState::Reader::Nobody);
        static_cast<GroupEntry&>(job->GroupLink()).m_schedule = schedule;
        Add(job);
    } catch (const std::exception& failure) {
        ReportNoThrow(4, 16, L"Concurrency.Job", L"Job [%s] skips a run: %hs", schedule->name->text.c_str(),
                      failure.what());
        const RankedLock lock(m_mutex);
        schedule->isUnderWay = false;
        if (!schedule->isRecurrent) {
            EndSchedule(*schedule);
        }
    }
}

// Null when all schedules that are not active have been cancelled.
std::shared_ptr<GroupSchedule> GroupCore::NextToCancel() noexcept {
    const RankedLock lock(m_mutex);
    for (const auto& schedule : m_schedules) {
        if (!schedule->isActive && !std::exchange(schedule->isTakenForCancel, true)) {
            return schedule;
        }
    }
    return nullptr;
}

// Nothing if it is active still, or if a later run is under way, which then does it. The thread that takes it out of the list
// destroys the callable: no run will call it any more.
void GroupCore::ForgetIfEnded(const std::shared_ptr<GroupSchedule>& schedule) noexcept {
    CancelEnded(*schedule);
    {
        const RankedLock lock(m_mutex);
        if (schedule->isActive || schedule->isUnderWay || m_schedules.remove(schedule) == 0) {
            return;
        }
    }
    schedule->work.Drop();
}

// The thread of the last run may hold its schedule for a moment still, when the callable must be gone. No run calls it any more.
void GroupCore::DropScheduledWork() noexcept {
    std::list<std::shared_ptr<GroupSchedule>> schedules;
    {
        const RankedLock lock(m_mutex);
        schedules.swap(m_schedules);
    }
    for (const auto& schedule : schedules) {
        schedule->work.Drop();
    }
}

}  // namespace Orvane::Internal
