#include "concurrency/cancellation/killable_task_marker.h"

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane {

KillableTaskMarker::KillableTaskMarker() {
    Internal::GetFutureObject()->GetCancellationObject()->SetKillable(true);
}

KillableTaskMarker::~KillableTaskMarker() {
    Internal::GetFutureObject()->GetCancellationObject()->SetKillable(false);
}

}  // namespace Orvane
