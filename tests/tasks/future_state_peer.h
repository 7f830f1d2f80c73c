// The lock and the condition of a future, for white-box tests that hold the one or wake the waiters.
#pragma once

#include <mutex>

#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

struct FutureStatePeer {
    static std::recursive_mutex& MutexOf(FutureState& future) { return future.m_mutex; }
    static Condition& ConditionOf(FutureState& future) { return future.m_condition; }
};

}  // namespace Orvane::Internal
