// The state of an emptied task: does nothing, and its future is a NullFutureState.
//
// Not for callers.
//
// Threads: any. Errors: std::bad_alloc from GetFuture().
#pragma once

#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/tasks/itask_state.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API NullTaskWrapper : public ITaskState {
  public:
    NullTaskWrapper();
    ~NullTaskWrapper() override;

    void operator()() override;
    std::shared_ptr<ITaskState> Recreate() override;     // empty
    std::shared_ptr<IFutureState> GetFuture() override;  // a new one at every call
};

}  // namespace Orvane::Internal
