#include "concurrency/cancellation/killable_task_marker.h"

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"

namespace Orvane {

KillableTaskMarker::KillableTaskMarker() {
    Internal::GetCancellationObject()->SetKillable(true);
}

KillableTaskMarker::~KillableTaskMarker() {
    Internal::GetCancellationObject()->SetKillable(false);
}

}  // namespace Orvane
