// Waits for several jobs. Included by job.h.
//
// Contract: that of job.h.
#pragma once

#include <array>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <ranges>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "concurrency/jobs/job_handle.h"

namespace Orvane {

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
