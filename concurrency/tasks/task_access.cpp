#include "concurrency/tasks/task_access.h"

#include <utility>

#include "concurrency/base/tick_counter.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/tasks/task_impl.h"

namespace Orvane::Internal {

Task TaskAccess::MakeUnlisted(const wchar_t* name, std::shared_ptr<ITaskState> wrapper) {
    return Task(std::shared_ptr<TaskImpl>(new TaskImpl(name, std::move(wrapper), TaskImpl::Listed::No)));
}

void TaskAccess::NoteQueued(const Task& task) noexcept {
    NoteQueued(task, TickCounter::Now());
}

void TaskAccess::NoteQueued(const Task& task, std::uint64_t tick) noexcept {
    if (task.m_impl) {
        task.m_impl->NoteQueued(tick);
    }
}

void TaskAccess::Track(const Task& task) {
    if (task.m_impl) {
        task.m_impl->Track(task.m_impl);
    }
}

void TaskAccess::CancelTracked() noexcept {
    TrackedTask::ForEach([](TaskImpl& task) {
        try {
            task.Cancel();
        } catch (const CancelRequestedException&) {
            // On purpose: it is the caller's own run, which is cancelled and goes on.
        }
    });
}

}  // namespace Orvane::Internal
