// The order in which the library's mutexes may be taken, and the check of it.
//
// Not for callers.
//
// A thread takes only what comes after all that it holds, or what it holds already (docs/maintainers/locks.md has the
// picture). In checked builds (ORVANE_CHECK_LOCK_ORDER) every RankedLock checks this, and a violation ends the process
// with both source lines on standard error.
#pragma once

#include <source_location>

namespace Orvane::Internal {

// In the order in which they may be taken. Two of one rank are never held together, but for futures: one may pass a
// request on to another.
enum class LockRank {
    Lifetime,
    Creation,
    Launch,
    Spawn,
    Pool,
    ScheduleQueue,
    JobWaits,
    JobGroup,
    Job,
    Task,
    Future,
    Waiter,
    CancellationObject,
    Leaf,
};

#ifdef ORVANE_CHECK_LOCK_ORDER

// What one lock has told the check. The entries of a thread form a list, the newest first.
class LockOrderEntry {
  public:
    LockOrderEntry(const void* mutex, LockRank rank, const std::source_location& where);
    ~LockOrderEntry();
    LockOrderEntry(const LockOrderEntry&) = delete;
    LockOrderEntry& operator=(const LockOrderEntry&) = delete;

    // To be told before the mutex is taken, and when it is given back.
    void Taking();
    void GivenBack() { m_held = false; }

  private:
    void Allow(const LockOrderEntry& held) const;

    const void* const m_mutex;
    const LockRank m_rank;
    const std::source_location m_where;
    bool m_held = false;
    LockOrderEntry* const m_older;
};

#else

class LockOrderEntry {
  public:
    LockOrderEntry(const void*, LockRank, const std::source_location&) noexcept {}
    void Taking() noexcept {}
    void GivenBack() noexcept {}
};

#endif

}  // namespace Orvane::Internal
