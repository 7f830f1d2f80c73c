#include "concurrency/tasks/null_task_wrapper.h"

#include "concurrency/tasks/null_future_state.h"

namespace Orvane::Internal {

NullTaskWrapper::NullTaskWrapper() = default;

NullTaskWrapper::~NullTaskWrapper() = default;

void NullTaskWrapper::operator()() {}

std::shared_ptr<ITaskState> NullTaskWrapper::Recreate() {
    return nullptr;
}

std::shared_ptr<IFutureState> NullTaskWrapper::GetFuture() {
    return std::shared_ptr<IFutureState>(new NullFutureState());
}

}  // namespace Orvane::Internal
