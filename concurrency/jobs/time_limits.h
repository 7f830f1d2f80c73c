// Asks jobs to leave when their time is up. One thread, which needs no worker of the pool. It starts with the first limit,
// and leaves when there has been none for a while.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <memory>

#include "concurrency/base/clock.h"
#include "concurrency/jobs/cancellable.h"

namespace Orvane::Internal {

struct TimeLimit {
    MonotonicClock::time_point when;
    std::uint64_t number = 0;  // 0: none

    auto operator<=>(const TimeLimit&) const = default;
};

// Calls TimeIsUp() of `target` once `when` has come, unless RemoveTimeLimit() comes first.
//
// Errors: std::bad_alloc; std::system_error if the thread cannot be started; nothing is changed then.
TimeLimit AddTimeLimit(std::weak_ptr<Cancellable> target, MonotonicClock::time_point when,
                       std::shared_ptr<const LimitName> name);

// Nothing if it has been reached, or if there is none. A request that is under way may still come.
void RemoveTimeLimit(const TimeLimit& limit) noexcept;

// Ends the thread. A later limit starts it again.
void StopTimeLimits() noexcept;

}  // namespace Orvane::Internal
