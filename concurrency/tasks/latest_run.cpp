#include "concurrency/tasks/latest_run.h"

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_object.h"

namespace Orvane::Internal {

void LatestRun::End(const std::shared_ptr<ITaskState>& state) noexcept {
    // By owner: a strong reference to another run might become its last one here, under the task's mutex.
    if (!m_state.owner_before(state) && !state.owner_before(m_state)) {
        m_state.reset();
    }
}

bool LatestRun::IsUnderWayElsewhere(const std::shared_ptr<ITaskState>& state) {
    if (!state) {
        return false;
    }
    const auto future = state->GetFuture();
    const auto cancellation = future->GetCancellationObject();
    const bool isOwn = cancellation && cancellation->GetThreadId() == ::GetCurrentThreadId();
    return !isOwn && (!future->IsReady() || future->IsCancelling());
}

}  // namespace Orvane::Internal
