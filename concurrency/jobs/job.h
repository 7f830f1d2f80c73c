// Work with a value: start a callable, and get what it returns or throws.
//
//     Orvane::Job<int> sum = Orvane::Run(L"Sum", [&numbers] { return Sum(numbers); });
//     ...
//     std::cout << sum.Get();
//
// A job belongs to its handle, and to the run that started it. Dropping the handle asks the job to leave and waits for it. A
// request for a run asks everything that it has started, all at once.
//
// Threads: any may start jobs. A handle is for one thread at a time, but for Cancel(), CancelAfter(), IsReady(), GetName() and
//     the waits, which other threads may call while the handle stays where it is.
// Cancellation: Get(), the waits, WhenAll() and WhenAny() are cancellation points of the calling thread's own run; a request
//     wakes them. Run() and Post() are, where GlobalThreadPool::Queue() is. A job that is asked before it starts does not run: its
//     callable is destroyed by the thread that asks. Inside the job the cancellable waits leave, and StopTokenOfThisJob() says
//     so. A value that came although the job was asked stays a value.
// Errors: every exception that leaves the callable comes out of Get() as itself. Get() throws CancelledException for a job that
//     left because it was asked, and TimeLimitException if its time limit was the reason. A CancelRequestedException or
//     CancelledException that leaves a job which was not asked is a failure like others. std::system_error
//     (resource_deadlock_would_occur) from a wait without limit that would close a ring of waiting jobs, with their names. Run()
//     throws Unexpected before the first initialisation and from the last uninitialisation on. It throws
//     std::system_error if the pool is full and cannot grow, or if the thread cannot be started, and std::bad_alloc. A handle
//     without a job throws std::logic_error.
// Memory: everything before Run() is visible to the job. Everything in the job, the destruction of its callable and arguments
//     included, is visible after Get() and the waits, and once IsReady() says true or EndEvent() is set.
// Lifetime: the callable and its arguments are decayed copies, as with std::async; they may be move-only. They are destroyed
//     before the job counts as ended, on each way: on the thread that ran it, or on the one that asked it before it started.
//     The result lives until Get() moves it out or the handle goes, and dies on that thread. A destructor of either that throws
//     ends the process, as the language has it; one that blocks holds up only the thread it runs on. No wait here ends the process:
//     every 30 s a log line names the innermost job that does not end.
#pragma once

#include <concepts>
#include <functional>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "concurrency/cancellation/time_limit_exceptions.h"
#include "concurrency/jobs/job_body.h"
#include "concurrency/jobs/job_handle.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/this_job.h"
#include "concurrency/jobs/when.h"
#include "concurrency/tasks/failure_handler.h"

namespace Orvane {

// Owns its job: to drop the handle asks the job to leave and waits until it has ended. Inside the job's own run, or where the
// wait would close a ring, it asks and does not wait. It never throws.
template <typename T>
class [[nodiscard]] Job : public TypedJobHandle<T> {
  public:
    // Without a job.
    Job() noexcept = default;

    // Takes the job over. The job that this handle had is dropped.
    Job(Job&&) noexcept = default;
    Job& operator=(Job&& other) noexcept {
        Job old(std::move(*this));  // dropped when this handle has the other job
        TypedJobHandle<T>::operator=(std::move(other));
        return *this;
    }

    // Asks the job to leave and waits until it has.
    ~Job() { this->m_job.Drop(); }

    // The job goes on without a handle and without an owner; a failure goes to the failure handler. Leaves the handle without
    // a job. What the callable refers to must live on.
    void Detach() { this->m_job.LetGo(); }

    // Not for callers.
    explicit Job(Internal::JobRef job) noexcept : TypedJobHandle<T>(std::move(job)) {}
};

namespace Internal {

template <typename F, typename... Arguments>
using JobResult = std::invoke_result_t<std::decay_t<F>, std::decay_t<Arguments>...>;

template <typename F>
concept JobCallable = !std::same_as<std::remove_cvref_t<F>, std::stop_token>;

// Puts callable and arguments into a job that is made for them.
template <typename F, typename... Arguments>
JobRef BuildInto(JobRef job, F&& callable, Arguments&&... arguments) {
    using Body = JobBody<std::decay_t<F>, std::decay_t<Arguments>...>;
    ::new (job.Body()) Body(std::forward<F>(callable), std::forward<Arguments>(arguments)...);
    job.MarkBuilt();
    return job;
}

template <typename F, typename... Arguments>
JobRef Build(const wchar_t* name, F&& callable, Arguments&&... arguments) {
    using Body = JobBody<std::decay_t<F>, std::decay_t<Arguments>...>;
    return BuildInto(JobRef::Make(name, Body::Type()), std::forward<F>(callable),
                     std::forward<Arguments>(arguments)...);
}

}  // namespace Internal

// Runs the callable on the global pool. Blocks where GlobalThreadPool::Queue() does. A stop request of the token asks the job to
// leave.
template <typename F, typename... Arguments>
auto Run(const wchar_t* name, std::stop_token token, F&& callable, Arguments&&... arguments)
    -> Job<Internal::JobResult<F, Arguments...>> {
    auto job = Internal::Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...);
    job.StartOnPool(token);
    return Job<Internal::JobResult<F, Arguments...>>(std::move(job));
}
template <Internal::JobCallable F, typename... Arguments>
auto Run(const wchar_t* name, F&& callable, Arguments&&... arguments) -> Job<Internal::JobResult<F, Arguments...>> {
    return Orvane::Run(name, std::stop_token(), std::forward<F>(callable), std::forward<Arguments>(arguments)...);
}

// Runs the callable on a thread of its own, which enters no COM apartment. For what blocks for long where it cannot be
// cancelled, or runs as long as the program.
template <typename F, typename... Arguments>
auto RunInNewThread(const wchar_t* name, std::stop_token token, F&& callable, Arguments&&... arguments)
    -> Job<Internal::JobResult<F, Arguments...>> {
    auto job = Internal::Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...);
    job.StartInNewThread(token);
    return Job<Internal::JobResult<F, Arguments...>>(std::move(job));
}
template <Internal::JobCallable F, typename... Arguments>
auto RunInNewThread(const wchar_t* name, F&& callable, Arguments&&... arguments)
    -> Job<Internal::JobResult<F, Arguments...>> {
    return Orvane::RunInNewThread(name, std::stop_token(), std::forward<F>(callable),
                                  std::forward<Arguments>(arguments)...);
}

// Runs the callable on the global pool; there is no handle to wait with. No run owns it: only the last uninitialisation asks
// it to leave. Its failure goes to the failure handler (failure_handler.h), and its result is destroyed.
template <typename F, typename... Arguments>
void Post(const wchar_t* name, F&& callable, Arguments&&... arguments) {
    Internal::Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...).StartUnowned();
}

}  // namespace Orvane
