#include "concurrency/scheduler/schedule_counts.h"

#include <algorithm>
#include <chrono>

#include "concurrency/base/mutex.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"

namespace Orvane::Internal {

namespace {

// A start before that is one that meant "now" when the task was inserted.
constexpr std::chrono::hours kLongAgo{24};

struct Counted {
    RankedMutex<RecursiveMutex, LockRank::Leaf> mutex;
    ScheduleCounts counts ORVANE_GUARDED_BY(mutex);
};

// Without a destructor: the end of the process may have killed a thread that held the lock.
Counted& All() noexcept {
    static NeverDestroyed<Counted> counted;
    return *counted;
}

}  // namespace

void CountDue(const TimePoint& start, const TimePoint& now) {
    if (start < now - kLongAgo) {
        return;
    }
    const auto late = std::chrono::nanoseconds(now > start ? now - start : Duration::zero());
    Counted& all = All();
    const RankedLock lock(all.mutex);
    all.counts.lateness.Add(static_cast<std::uint64_t>(late.count()));
}

void CountSkip() {
    Counted& all = All();
    const RankedLock lock(all.mutex);
    ++all.counts.skips;
}

ScheduleCounts CopyScheduleCounts() {
    Counted& all = All();
    const RankedLock lock(all.mutex);
    return all.counts;
}

}  // namespace Orvane::Internal
