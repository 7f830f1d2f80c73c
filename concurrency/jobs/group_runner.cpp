// The runners of a group.
#include <utility>

#include "concurrency/jobs/group_core.h"
#include "concurrency/jobs/job_launch.h"
#include "concurrency/jobs/pool_starter.h"
#include "concurrency/tasks/task_access.h"

namespace Orvane::Internal {

// The task of the pool that runs a group's jobs.
class GroupRunner final : public ITaskState {
  public:
    explicit GroupRunner(std::shared_ptr<GroupCore> group) : m_group(std::move(group)) {}
    ~GroupRunner() override {
        if (!m_hasBegun) {
            m_group->RunnerNeverBegan();
        }
    }
    GroupRunner(const GroupRunner&) = delete;
    GroupRunner& operator=(const GroupRunner&) = delete;

    void operator()() override {
        m_hasBegun = true;
        m_group->RunnerBegins();
        m_group->RunItems();
    }
    std::shared_ptr<ITaskState> Recreate() override { return nullptr; }
    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    const std::shared_ptr<GroupCore> m_group;
    const std::shared_ptr<FutureState> m_future = std::make_shared<FutureState>();
    bool m_hasBegun = false;
};

// Needs m_mutex. Jobs that want their slots again come before those that have none. What waits in a spent group is on its way to
// be asked, and never runs.
bool GroupCore::CanStartOne() const {
    const bool isThereOne = !m_ready.IsEmpty() || (!m_waiting.IsEmpty() && m_slots.IsOneFreeBehind(0));
    return isThereOne && m_reason.cause == CancelCause::None;
}

// Needs m_mutex. The slot of a job that waits for others of the group goes to the job that has waited longest, for good. If it
// only became free, a waiter with a short time-out would have it again before a runner could begin, and again and again.
void GroupCore::HandOver() noexcept {
    GroupEntry* const next = m_reason.cause == CancelCause::None ? m_waiting.PopFront() : nullptr;
    if (next == nullptr) {
        m_slots.Free();
        return;
    }
    next->m_hasSlot = true;
    m_ready.PushBack(*next);
    ++m_readyCount;
}

bool GroupCore::ClaimStart() noexcept {
    const RankedLock lock(m_mutex);
    if (m_isStarting || !CanStartOne()) {
        return false;
    }
    m_isStarting = true;
    return true;
}

void GroupCore::StartRunner() noexcept {
    if (!ClaimStart()) {
        return;
    }
    try {
        const Task runner =
            TaskAccess::MakeUnlisted(m_name->text.c_str(), std::make_shared<GroupRunner>(shared_from_this()));
        if (!Launch(runner, LaunchOn::PoolIfItHasRoom)) {
            QueueInBackground(
                runner, [self = shared_from_this()](const std::exception_ptr& error) { self->StartHasFailed(error); });
        }
    } catch (...) {
        StartHasFailed(std::current_exception());
    }
}

void GroupCore::StartHasFailed(const std::exception_ptr& error) noexcept {
    {
        const RankedLock lock(m_mutex);
        m_isStarting = false;
        if (m_runners != 0) {
            return;  // which takes one job after the other, and tries again
        }
    }
    Fail(m_name, error);
}

void GroupCore::RunnerNeverBegan() noexcept {
    const RankedLock lock(m_mutex);
    m_isStarting = false;
}

void GroupCore::RunnerBegins() noexcept {
    const RankedLock lock(m_mutex);
    m_isStarting = false;
    ++m_runners;
}

// Null if the runner is to leave.
std::shared_ptr<JobState> GroupCore::TakeNext() noexcept {
    const RankedLock lock(m_mutex);
    if (!CanStartOne()) {
        --m_runners;
        return nullptr;
    }
    GroupEntry& entry = *(m_ready.IsEmpty() ? m_waiting : m_ready).PopFront();
    entry.m_isWaiting = false;
    if (std::exchange(entry.m_hasSlot, true)) {
        --m_readyCount;
    } else {
        m_slots.Take();
    }
    --m_counts.waiting;
    ++m_counts.running;
    m_running.PushBack(entry);
    return std::move(entry.m_keptJob);
}

void GroupCore::RunItems() {
    while (const std::shared_ptr<JobState> job = TakeNext()) {
        StartRunner();
        try {
            Task task = TaskAccess::MakeUnlisted(job->Name(), job);
            TaskAccess::NoteQueued(task, static_cast<GroupEntry&>(job->GroupLink()).m_addedTick);
            task();
        } catch (...) {
            (*job)();  // no memory for its records in the log: nothing if it has run
        }
    }
}

}  // namespace Orvane::Internal
