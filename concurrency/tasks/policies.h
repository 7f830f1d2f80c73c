// The policies of a task wrapper: what is done to the thread around a run. A threading policy is an empty type with
// two static operations.
#pragma once

#include "concurrency/base/export.h"

namespace Orvane::Internal {

// Runs in the COM multithreaded apartment.
//
// Threads: Leave() on the thread that entered.
// Cancellation: no cancellation points.
// Errors: none: a thread that is already in another apartment stays in it, and the run proceeds.
// Memory: it orders nothing.
// Lifetime: it has no objects.
struct ORVANE_CONCURRENCY_API ComPolicyMTA {
    // Returns whether Leave() is due.
    static bool Enter() noexcept;

    // Leaves the apartment, on the thread that entered it.
    static void Leave() noexcept;
};

// Leaves the thread as it is. Not for callers.
struct NullPolicy {
    static bool Enter() noexcept { return false; }
    static void Leave() noexcept {}
};

// Logs nothing beyond the task's own records. Not for callers.
struct LoggingPolicyNull {};

// Applies a threading policy to a scope. Not for callers.
template <typename ThreadPolicy>
class PolicyScope {
  public:
    PolicyScope() noexcept : m_entered(ThreadPolicy::Enter()) {}
    ~PolicyScope() {
        if (m_entered) {
            ThreadPolicy::Leave();
        }
    }
    PolicyScope(const PolicyScope&) = delete;
    PolicyScope& operator=(const PolicyScope&) = delete;

  private:
    const bool m_entered;
};

}  // namespace Orvane::Internal
