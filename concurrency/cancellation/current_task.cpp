#include "concurrency/cancellation/current_task.h"

#include <utility>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/tasks/future_state.h"
#include "concurrency/tasks/run_words.h"

namespace Orvane {

namespace Internal {

std::shared_ptr<FutureState> GetFutureObject() {
    return FutureState::TaskOf(CurrentFuture());
}

std::weak_ptr<FutureState> ResetFutureObject(std::weak_ptr<FutureState> future) {
    return ExchangeCurrentFuture(std::move(future));
}

void RestoreFutureObject(std::weak_ptr<FutureState> future) noexcept {
    try {
        ExchangeCurrentFuture(std::move(future));
    } catch (...) {
        EndProcessInRun("the current task of a thread cannot be restored");
    }
}

std::shared_ptr<CancellationObject> GetCancellationObject() {
    const std::shared_ptr<FutureState> future = CurrentFuture();
    return future ? future->GetCancellationObject() : nullptr;
}

}  // namespace Internal

bool IsCancellationRequested() {
    const auto cancellation = Internal::GetCancellationObject();
    return cancellation && cancellation->IsRequested();
}

void CancellationPoint() {
    if (IsCancellationRequested()) {
        Internal::ThrowCancelRequested();
    }
}

}  // namespace Orvane
