// What a Task runs. The order of the operations is binary interface.
//
// Not for callers.
#pragma once

#include <memory>

#include "concurrency/tasks/ifuture_state.h"

namespace Orvane::Internal {

class ITaskState {
  public:
    ITaskState(const ITaskState&) noexcept {}
    ITaskState& operator=(const ITaskState&) noexcept { return *this; }

    // Runs the work once.
    virtual void operator()() = 0;

    // A fresh state for the same work with a new future, or empty if the work is gone.
    virtual std::shared_ptr<ITaskState> Recreate() = 0;

    virtual std::shared_ptr<IFutureState> GetFuture() = 0;

  protected:
    ITaskState() = default;
    virtual ~ITaskState() = default;
};

}  // namespace Orvane::Internal
