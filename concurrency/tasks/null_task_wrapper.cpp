#include "concurrency/tasks/null_task_wrapper.h"

#include "concurrency/tasks/null_future_state.h"

namespace Orvane::Internal {

std::shared_ptr<ITaskState> NullTaskWrapper::Instance() {
    static NullTaskWrapper instance;
    return std::shared_ptr<ITaskState>(std::shared_ptr<void>(), &instance);
}

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
