// What a layer above keeps beside a run (FutureState::InstallCompanion): to be told of requests where no lock is held, which
// a notifier is not.
//
// Threads: Requested() on the thread that cancels, which may be the run's own.
// Lifetime: shared; kept until the run has ended.
#pragma once

namespace Orvane::Internal {

class RunCompanion {
  public:
    RunCompanion(const RunCompanion&) = delete;
    RunCompanion& operator=(const RunCompanion&) = delete;

    // After each request for the run: the flag is set and the notifier notified. The caller holds no lock of the library.
    virtual void Requested() noexcept = 0;

  protected:
    RunCompanion() = default;
    virtual ~RunCompanion() = default;
};

}  // namespace Orvane::Internal
