// The short way to a task.
//
//     Task task = Orvane::MakeTask(L"Read index", [&index] { index.Read(); });
//     GlobalThreadPool::Queue(task);
//     task.Wait();
//
// Threads: any. The callable runs on the thread that runs the task.
// Cancellation: inside the callable, CancellationPoint() and the cancellable waits leave when the task is cancelled.
// Errors: std::bad_alloc, and what copying the callable throws. An empty std::function is accepted: its run throws
//     std::bad_function_call, which ends the process on a thread of the library.
// Lifetime: the callable is copied, also by Task::Reset(). If it returns, it is destroyed before its run counts as
//     ended. If it throws or never runs, it is destroyed after the task has been waited for or its last handle
//     released. This can be after Wait() returns, because the worker may still hold it. What it uses must live until
//     its run has ended; what its captures' destructors use, until they have run. Its destructor must not block. The
//     module that made the task must stay loaded for longer: see docs/limits.md.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/policies.h"
#include "concurrency/tasks/task.h"
#include "concurrency/tasks/task_wrapper.h"

namespace Orvane {

// Also hands out the future, which keeps the outcome when the task has been waited for: future->GetValue() returns, or
// throws what the run ended with.
template <typename ThreadPolicy = Internal::NullPolicy, typename Callable>
Internal::Task MakeTask(const wchar_t* name, Callable&& callable, std::shared_ptr<Internal::FutureImpl<void>>& future) {
    using F = std::decay_t<Callable>;
    static_assert(std::is_copy_constructible_v<F>, "a task copies its callable: hold what cannot be copied by pointer");
    static_assert(std::is_invocable_v<F&>, "a task calls its callable without arguments");
    std::shared_ptr<Internal::FutureImpl<void>> fresh(new Internal::FutureImpl<void>());
    std::shared_ptr<Internal::ITaskState> wrapper(
        new Internal::TaskWrapper<void, F, ThreadPolicy>(std::forward<Callable>(callable), fresh));
    Internal::Task task(name, std::move(wrapper));
    future = std::move(fresh);
    return task;
}

// A task that runs the callable once.
template <typename ThreadPolicy = Internal::NullPolicy, typename Callable>
Internal::Task MakeTask(const wchar_t* name, Callable&& callable) {
    std::shared_ptr<Internal::FutureImpl<void>> future;
    return MakeTask<ThreadPolicy>(name, std::forward<Callable>(callable), future);
}

}  // namespace Orvane
