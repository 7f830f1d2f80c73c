// The private fields of a future, for tests of their layout and of the locking around them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

struct FieldOrder {
    static std::recursive_mutex& MutexOf(FutureState& future) { return future.m_mutex; }
    static Condition& ConditionOf(FutureState& future) { return future.m_condition; }
    static std::uint32_t CodeOf(const FutureState& future) { return future.m_state; }

    // From the start of the object.
    struct Offsets {
        std::ptrdiff_t mutex, condition, state, exception, cancellationObject, attachedToTask;
    };

    static Offsets OffsetsOf(const FutureState& future) {
        const auto from = [&](const auto& field) {
            return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&future);
        };
        return {from(future.m_mutex),     from(future.m_condition),          from(future.m_state),
                from(future.m_exception), from(future.m_cancellationObject), from(future.m_attachedToTask)};
    }

    using StateField = decltype(FutureState::m_state);
    static constexpr std::uint32_t kCodes[] = {FutureState::NotStarted, FutureState::Busy,      FutureState::Normal,
                                               FutureState::Cancelling, FutureState::Cancelled, FutureState::Error};
};

}  // namespace Orvane::Internal
