#pragma once

#include "concurrency/base/export.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

// Not for callers.
template <typename Result>
class FutureImpl;

// The future that a task wrapper fulfils: FutureState plus the value side. Only void exists: the value is the bare fact
// of normal completion.
//
// Threads: SetValue() belongs to the run's thread, GetValue() to any.
// Cancellation: GetValue() waits as FutureState::Wait() does.
// Errors: GetValue() throws the run's exception: a CloneableException as its own type, an ExceptionBase as the kind
//     that is registered for its code, else as ExceptionBase. It throws nothing if that code is zero. It throws
//     CancelledException for a run that was cancelled, and std::bad_alloc if there was no memory to keep the run's
//     exception. It throws CancelRequestedException when the calling thread's own task is being cancelled.
// Memory: everything in the run is visible after GetValue(), unless it threw CancelRequestedException.
// Lifetime: create it with new and own it through std::shared_ptr.
template <>
class ORVANE_CONCURRENCY_API FutureImpl<void> : public FutureState {
  public:
    // A run that has not started, with no task attached.
    FutureImpl();
    ~FutureImpl() override;

    // Ends the run as Normal, if it is under way.
    void SetValue();

    // Waits, then returns or throws what the run ended with. On purpose: a future that no task is attached to is not
    // waited for, and while it has not ended there is nothing to throw.
    void GetValue();
};

}  // namespace Orvane::Internal
