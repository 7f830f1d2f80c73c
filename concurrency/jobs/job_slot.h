// The place of a job among those that its group runs at a time. A job that waits for one of its own group gives it back
// meanwhile.
//
// Threads: OfThisThread() is about the calling thread's run; the others are called on the thread that runs the job.
#pragma once

#include <memory>

namespace Orvane::Internal {

class CancellationObject;
class JobWaiter;

class JobSlot {
  public:
    // Null if the calling thread's run is not a job of a group.
    static JobSlot* OfThisThread();

    virtual const void* Group() const noexcept = 0;
    virtual void GiveBack() noexcept = 0;

    // Waits until there is one. Returns false, and has none, if the run is asked meanwhile.
    virtual bool TakeAgain(JobWaiter& waiter, CancellationObject& run) = 0;

    // For a wait that cannot be cancelled: goes on without a slot if none is free.
    virtual void TakeAgainAtOnce() noexcept = 0;

  protected:
    ~JobSlot() = default;
};

}  // namespace Orvane::Internal
