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

#include <array>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/job_body.h"
#include "concurrency/jobs/job_exceptions.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/job_ref.h"
#include "concurrency/jobs/this_job.h"
#include "concurrency/tasks/failure_handler.h"

namespace Orvane {

namespace Internal {

// `duration` in nanoseconds; what does not fit becomes the nearest.
template <typename Rep, typename Period>
std::chrono::nanoseconds ToNanoseconds(const std::chrono::duration<Rep, Period>& duration) {
    using Seconds = std::chrono::duration<long double>;
    using Nanoseconds = std::chrono::nanoseconds;
    if (Seconds(duration) >= Seconds((Nanoseconds::max)())) {
        return (Nanoseconds::max)();
    }
    if (!(Seconds(duration) > Seconds((Nanoseconds::min)()))) {
        return (Nanoseconds::min)();
    }
    return std::chrono::ceil<Nanoseconds>(duration);
}

// Waits in slices, because only the deadline's own clock decides that it has come. `waitFor` returns whether it is over.
template <typename Clock, typename ClockDuration, typename WaitFor>
bool WaitUntilTime(const std::chrono::time_point<Clock, ClockDuration>& deadline, WaitFor waitFor) {
    using Seconds = std::chrono::duration<long double>;
    constexpr std::chrono::seconds kLongestSlice{1};
    if (IsInVirtualTime()) {
        return waitFor(ToNanoseconds(deadline - Clock::now()));  // that clock stands still meanwhile
    }
    for (;;) {
        const auto now = Clock::now();
        // A far deadline may be beyond what the clock's own units can say: it is compared in floating point.
        const Seconds left = Seconds(deadline.time_since_epoch()) - Seconds(now.time_since_epoch());
        if (left < -Seconds(kLongestSlice) || (left <= Seconds(kLongestSlice) && now >= deadline)) {
            return waitFor(std::chrono::nanoseconds::zero());
        }
        const bool isFar = left > Seconds(kLongestSlice);
        if (waitFor(isFar ? std::chrono::nanoseconds(kLongestSlice) : ToNanoseconds(deadline - now))) {
            return true;
        }
    }
}

}  // namespace Internal

// What can be done with a job whatever its result.
class JobHandle {
  public:
    // Returns when the job has ended, whatever its outcome.
    void Wait() const { m_job.Wait(); }

    // Return whether the job has ended in time. Zero or less looks and does not wait.
    template <typename Rep, typename Period>
    [[nodiscard]] bool WaitFor(const std::chrono::duration<Rep, Period>& timeout) const {
        return m_job.WaitFor(Internal::ToNanoseconds(timeout));
    }
    template <typename Clock, typename ClockDuration>
    [[nodiscard]] bool WaitUntil(const std::chrono::time_point<Clock, ClockDuration>& deadline) const {
        return Internal::WaitUntilTime(deadline,
                                       [this](std::chrono::nanoseconds slice) { return m_job.WaitFor(slice); });
    }

    // Asks the job to leave; nothing if it has ended. In the job's own run it only makes the request: the next cancellation
    // point throws.
    void Cancel() const { m_job.Cancel(); }

    // The same after `limit`, on the monotonic clock: at once for zero or less, never beyond the end of time. Of several
    // limits the earliest counts. Needs no worker of the pool.
    // Errors: std::bad_alloc; std::system_error if the thread of the limits cannot be started; no limit is set then.
    template <typename Rep, typename Period>
    void CancelAfter(const std::chrono::duration<Rep, Period>& limit) const {
        m_job.CancelAfter(Internal::ToNanoseconds(limit));
    }

    // Whether Get() would not block. False without a job.
    bool IsReady() const noexcept { return m_job.IsReady(); }

    // In full; log records keep its first 29 characters. Empty without a job.
    std::wstring GetName() const { return m_job.GetName(); }

    // A manual-reset event that is set when the job has ended: for WaitForMultipleObjects beside other handles. Made by the
    // first call. It belongs to the job: it is valid for as long as this handle has the job.
    // Errors: std::system_error if the platform has none.
    HANDLE EndEvent() const { return m_job.EndEvent(); }

    // Why the job was asked to leave first; None if it was not.
    CancelReason GetCancelReason() const { return m_job.GetCancelReason(); }

    // Not for callers.
    const Internal::JobRef& Ref() const noexcept { return m_job; }

  protected:
    JobHandle() noexcept = default;
    explicit JobHandle(Internal::JobRef job) noexcept : m_job(std::move(job)) {}
    JobHandle(JobHandle&&) noexcept = default;
    JobHandle& operator=(JobHandle&&) noexcept = default;
    ~JobHandle() = default;

    Internal::JobRef m_job;
};

// A job whose result is a T: nothing, a value or a reference.
template <typename T>
class TypedJobHandle : public JobHandle {
  public:
    // Waits, then returns the result or throws what the job ended with: once. If the wait throws, the result is still there.
    T Get() {
        if (m_isTaken) {
            throw std::logic_error("the result of the job was taken already");
        }
        m_job.Wait();
        m_isTaken = true;
        const Releasing releasing{m_job};
        [[maybe_unused]] void* const result = m_job.Result();
        if constexpr (std::is_reference_v<T>) {
            return **static_cast<std::remove_reference_t<T>**>(result);
        } else if constexpr (!std::is_void_v<T>) {
            return std::move(*static_cast<std::remove_const_t<T>*>(result));
        }
    }

  protected:
    TypedJobHandle() noexcept = default;
    explicit TypedJobHandle(Internal::JobRef job) noexcept : JobHandle(std::move(job)) {}
    TypedJobHandle(TypedJobHandle&&) noexcept = default;
    TypedJobHandle& operator=(TypedJobHandle&&) noexcept = default;
    ~TypedJobHandle() = default;

    bool m_isTaken = false;

  private:
    struct Releasing {
        const Internal::JobRef& job;
        ~Releasing() { job.Release(); }
    };
};

// Owns its job: to drop the handle asks the job to leave and waits until it has ended. Inside the job's own run, or where the
// wait would close a ring, it asks and does not wait. It never throws.
template <typename T>
class [[nodiscard]] Job : public TypedJobHandle<T> {
  public:
    // Without a job.
    Job() noexcept = default;
    Job(Job&&) noexcept = default;
    Job& operator=(Job&& other) noexcept {
        Job old(std::move(*this));  // dropped when this handle has the other job
        TypedJobHandle<T>::operator=(std::move(other));
        return *this;
    }
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

// Runs the callable on the global pool, and nobody waits for it. No run owns it: only the last uninitialisation asks it to
// leave. Its failure goes to the failure handler (failure_handler.h), and its result is destroyed.
template <typename F, typename... Arguments>
void Post(const wchar_t* name, F&& callable, Arguments&&... arguments) {
    Internal::Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...).StartUnowned();
}

namespace Internal {

// A result in a tuple: nothing stands as std::monostate.
template <typename T>
using TupleResult = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

template <typename T>
TupleResult<T> GetForTuple(TypedJobHandle<T>& job) {
    if constexpr (std::is_void_v<T>) {
        job.Get();
        return {};
    } else {
        return job.Get();
    }
}

template <typename T>
T ResultTypeOf(const TypedJobHandle<T>&);

// Of Job and GroupJob.
template <typename J>
concept AnyJob = requires(const std::remove_cvref_t<J>& job) { Internal::ResultTypeOf(job); };

template <typename R>
concept JobRange = std::ranges::forward_range<R> && AnyJob<std::ranges::range_reference_t<R>>;

template <typename... Jobs>
auto RefsOf(const Jobs&... jobs) {
    return std::array<const JobRef*, sizeof...(Jobs)>{&jobs.Ref()...};
}

template <typename Range>
std::vector<const JobRef*> RefsIn(Range& jobs) {
    std::vector<const JobRef*> refs;
    for (const JobHandle& job : jobs) {
        refs.push_back(&job.Ref());
    }
    return refs;
}

template <typename T>
[[noreturn]] void ThrowOutcome(TypedJobHandle<T>& job) {
    job.Get();
    throw std::logic_error("the job has not failed");
}

// Throws what the first job that is not Done ended with, if there is one.
template <typename... Ts>
void ThrowFirst(TypedJobHandle<Ts>&... jobs) {
    const auto refs = RefsOf(jobs...);
    const std::size_t first = FirstNotDone(refs.data(), refs.size());
    std::size_t index = 0;
    [[maybe_unused]] const auto throwIfIt = [&](auto& job) {
        if (index++ == first) {
            ThrowOutcome(job);
        }
    };
    (throwIfIt(jobs), ...);
}

constexpr std::chrono::nanoseconds kForEver = (std::chrono::nanoseconds::max)();

template <typename... Ts>
std::optional<std::tuple<TupleResult<Ts>...>> WhenAllWithin(std::chrono::nanoseconds timeout,
                                                            TypedJobHandle<Ts>&... jobs) {
    const auto refs = RefsOf(jobs...);
    if (!WaitForAll(refs.data(), refs.size(), timeout)) {
        return std::nullopt;
    }
    ThrowFirst(jobs...);
    return std::tuple<TupleResult<Ts>...>{GetForTuple(jobs)...};
}

template <typename Range>
using RangeResult = decltype(ResultTypeOf(*std::ranges::begin(std::declval<Range&>())));

// The same in a vector.
template <typename T>
using VectorResult = std::conditional_t<std::is_reference_v<T>, std::reference_wrapper<std::remove_reference_t<T>>,
                                        std::remove_const_t<TupleResult<T>>>;

template <typename Range>
using Results = std::vector<VectorResult<RangeResult<Range>>>;

template <typename Range>
std::optional<Results<Range>> WhenAllInWithin(std::chrono::nanoseconds timeout, Range& jobs) {
    const auto refs = RefsIn(jobs);
    if (!WaitForAll(refs.data(), refs.size(), timeout)) {
        return std::nullopt;
    }
    const std::size_t first = FirstNotDone(refs.data(), refs.size());
    if (first != kNoJob) {
        ThrowOutcome(*std::ranges::next(std::ranges::begin(jobs), static_cast<std::ptrdiff_t>(first)));
    }
    Results<Range> results;
    results.reserve(refs.size());
    for (auto& job : jobs) {
        results.push_back(GetForTuple(job));
    }
    return results;
}

inline std::optional<std::size_t> IndexOrNothing(std::size_t index) {
    return index == kNoJob ? std::nullopt : std::optional(index);
}

}  // namespace Internal

// Waits until all jobs have ended and returns their results in order, std::monostate for nothing; of a range in a vector, in
// which a std::reference_wrapper stands for a reference. As soon as one has failed or was cancelled it throws what the first
// such job ended with; the others go on, and keep their results.
template <Internal::AnyJob... Jobs>
auto WhenAll(Jobs&&... jobs) {
    return *Internal::WhenAllWithin(Internal::kForEver, jobs...);
}
template <Internal::JobRange Range>
Internal::Results<Range> WhenAll(Range& jobs) {
    return *Internal::WhenAllInWithin(Internal::kForEver, jobs);
}

// The same until a time-out or deadline: then they return nothing, and all jobs keep their results.
template <typename Rep, typename Period, Internal::AnyJob... Jobs>
auto WhenAllFor(const std::chrono::duration<Rep, Period>& timeout, Jobs&&... jobs) {
    return Internal::WhenAllWithin(Internal::ToNanoseconds(timeout), jobs...);
}
template <typename Rep, typename Period, Internal::JobRange Range>
std::optional<Internal::Results<Range>> WhenAllFor(const std::chrono::duration<Rep, Period>& timeout, Range& jobs) {
    return Internal::WhenAllInWithin(Internal::ToNanoseconds(timeout), jobs);
}
template <typename Clock, typename ClockDuration, typename... Jobs>
auto WhenAllUntil(const std::chrono::time_point<Clock, ClockDuration>& deadline, Jobs&... jobs) {
    decltype(WhenAllFor(std::chrono::nanoseconds(), jobs...)) results;
    Internal::WaitUntilTime(deadline, [&](std::chrono::nanoseconds slice) {
        results = WhenAllFor(slice, jobs...);
        return results.has_value();
    });
    return results;
}

// Waits until one of the jobs has ended, whatever its outcome, and returns the index of the first in time; of those that
// ended at the same time, the lowest. Nothing is taken from it, and the others go on.
template <Internal::AnyJob... Jobs>
    requires(sizeof...(Jobs) > 0)
std::size_t WhenAny(const Jobs&... jobs) {
    const auto refs = Internal::RefsOf(jobs...);
    return Internal::WaitForAny(refs.data(), refs.size(), Internal::kForEver);
}
template <Internal::JobRange Range>
std::size_t WhenAny(const Range& jobs) {
    const auto refs = Internal::RefsIn(jobs);
    return Internal::WaitForAny(refs.data(), refs.size(), Internal::kForEver);
}

// The same until a time-out or deadline: then they return nothing.
template <typename Rep, typename Period, Internal::AnyJob... Jobs>
    requires(sizeof...(Jobs) > 0)
std::optional<std::size_t> WhenAnyFor(const std::chrono::duration<Rep, Period>& timeout, const Jobs&... jobs) {
    const auto refs = Internal::RefsOf(jobs...);
    return Internal::IndexOrNothing(Internal::WaitForAny(refs.data(), refs.size(), Internal::ToNanoseconds(timeout)));
}
template <typename Rep, typename Period, Internal::JobRange Range>
std::optional<std::size_t> WhenAnyFor(const std::chrono::duration<Rep, Period>& timeout, const Range& jobs) {
    const auto refs = Internal::RefsIn(jobs);
    return Internal::IndexOrNothing(Internal::WaitForAny(refs.data(), refs.size(), Internal::ToNanoseconds(timeout)));
}
template <typename Clock, typename ClockDuration, typename... Jobs>
std::optional<std::size_t> WhenAnyUntil(const std::chrono::time_point<Clock, ClockDuration>& deadline,
                                        const Jobs&... jobs) {
    std::optional<std::size_t> index;
    Internal::WaitUntilTime(deadline, [&](std::chrono::nanoseconds slice) {
        index = WhenAnyFor(slice, jobs...);
        return index.has_value();
    });
    return index;
}

}  // namespace Orvane
