#include "concurrency/tasks/task.h"

#include <utility>

#include "concurrency/tasks/empty_task_state.h"
#include "concurrency/tasks/task_impl.h"

namespace Orvane::Internal {

Task::Task() = default;

Task::Task(const wchar_t* name, std::shared_ptr<ITaskState> wrapper) : m_impl(new TaskImpl(name, std::move(wrapper))) {}

Task::Task(std::shared_ptr<TaskImpl> impl) noexcept : m_impl(std::move(impl)) {}

Task::Task(const Task&) = default;
Task::Task(Task&&) noexcept = default;
Task& Task::operator=(const Task&) = default;
Task& Task::operator=(Task&&) noexcept = default;
Task::~Task() = default;

bool Task::operator==(const Task& other) const {
    return m_impl == other.m_impl;
}

// Every operation holds the task itself: a callable may release the handle that it is run through.

void Task::operator()() {
    if (const auto impl = m_impl) {
        impl->Run();
    }
}

void Task::Cancel() {
    if (const auto impl = m_impl) {
        impl->Cancel();
    }
}

const wchar_t* Task::GetName() const {
    return m_impl ? m_impl->GetName() : L"";
}

std::shared_ptr<ITaskState> Task::GetWrapper() {
    return m_impl ? m_impl->GetWrapper() : EmptyTaskState();
}

bool Task::IsBusy() const {
    return m_impl && m_impl->IsBusy();
}

bool Task::IsCancelled() const {
    return !m_impl || m_impl->IsCancelled();
}

void Task::Reset() {
    if (const auto impl = m_impl) {
        impl->Reset();
    }
}

void Task::Wait() {
    if (const auto impl = m_impl) {
        impl->Wait();
    }
}

void Task::EndRun() {
    if (const auto impl = m_impl) {
        impl->EndRun();
    }
}

}  // namespace Orvane::Internal
