// The future of an empty task: fixed answers, no state. It is cancelled but not ready, and a wait on it is over at
// once.
//
// Not for callers.
//
// Threads: any. Errors: none.
#pragma once

#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/tasks/ifuture_state.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API NullFutureState : public IFutureState {
  public:
    NullFutureState();
    NullFutureState(const NullFutureState&);
    NullFutureState(NullFutureState&&) noexcept;
    NullFutureState& operator=(const NullFutureState&);
    NullFutureState& operator=(NullFutureState&&) noexcept;
    ~NullFutureState() override;

    bool Start() override;                                                      // false
    void SetException(const CloneableException& exception) override;            // ignored
    bool IsBusy() const override;                                               // false
    bool IsReady() const override;                                              // false
    bool IsNormal() const override;                                             // false
    bool IsCancelling() const override;                                         // false
    bool IsCancelled() const override;                                          // true
    void Wait() override;                                                       // over at once
    bool TimedWait(const TimePoint& deadline) override;                         // true at once
    void RequestCancel() override;                                              // ignored
    void ConfirmCancel() override;                                              // ignored
    std::shared_ptr<CancellationObject> GetCancellationObject() override;       // empty
};

}  // namespace Orvane::Internal
