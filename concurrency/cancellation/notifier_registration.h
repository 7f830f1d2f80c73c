// The step that every notifier's creation ends with.
#pragma once

#include <memory>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"

namespace Orvane::Internal {

// Registers the notifier with the run that the calling thread is in, if any, and returns it.
inline std::shared_ptr<AbstractCancelNotifier> RegisterWithCurrentRun(
    std::shared_ptr<AbstractCancelNotifier> notifier) {
    if (const auto cancellation = GetCancellationObject()) {
        cancellation->RegisterNotifier(notifier);
    }
    return notifier;
}

}  // namespace Orvane::Internal
