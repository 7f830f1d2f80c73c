// The outcome record of one run of a task, as the library's parts see it. The order of the operations is binary
// interface.
//
// Not for callers.
#pragma once

#include <memory>

#include "concurrency/base/time.h"

namespace Orvane {

class CloneableException;

namespace Internal {

class CancellationObject;

class IFutureState {
  public:
    IFutureState(const IFutureState&) noexcept {}
    IFutureState& operator=(const IFutureState&) noexcept { return *this; }

    virtual bool Start() = 0;
    virtual void SetException(const CloneableException& exception) = 0;
    virtual bool IsBusy() const = 0;
    virtual bool IsReady() const = 0;
    virtual bool IsNormal() const = 0;
    virtual bool IsCancelling() const = 0;
    virtual bool IsCancelled() const = 0;
    virtual void Wait() = 0;
    virtual bool TimedWait(const TimePoint& deadline) = 0;
    virtual void RequestCancel() = 0;
    virtual void ConfirmCancel() = 0;
    virtual std::shared_ptr<CancellationObject> GetCancellationObject() = 0;

  protected:
    IFutureState() = default;
    virtual ~IFutureState() = default;
};

}  // namespace Internal
}  // namespace Orvane
