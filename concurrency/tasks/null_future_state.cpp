#include "concurrency/tasks/null_future_state.h"

namespace Orvane::Internal {

NullFutureState::NullFutureState() = default;
NullFutureState::NullFutureState(const NullFutureState&) = default;
NullFutureState::NullFutureState(NullFutureState&&) noexcept = default;
NullFutureState& NullFutureState::operator=(const NullFutureState&) = default;
NullFutureState& NullFutureState::operator=(NullFutureState&&) noexcept = default;
NullFutureState::~NullFutureState() = default;

bool NullFutureState::Start() {
    return false;
}

void NullFutureState::SetException(const CloneableException&) {}

bool NullFutureState::IsBusy() const {
    return false;
}

bool NullFutureState::IsReady() const {
    return false;
}

bool NullFutureState::IsNormal() const {
    return false;
}

bool NullFutureState::IsCancelling() const {
    return false;
}

bool NullFutureState::IsCancelled() const {
    return true;
}

void NullFutureState::Wait() {}

bool NullFutureState::TimedWait(const TimePoint&) {
    return true;
}

void NullFutureState::RequestCancel() {}

void NullFutureState::ConfirmCancel() {}

std::shared_ptr<CancellationObject> NullFutureState::GetCancellationObject() {
    return nullptr;
}

}  // namespace Orvane::Internal
