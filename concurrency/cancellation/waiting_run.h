// A run, as one of its waits sees it: looked up once, asked for requests, and told what it waits in.
//
// Not for callers.
//
// A run that does not leave when it is asked is found by its note: what its thread waits in, and since when
// (jobs/runs.h lists them). Every wait of the library leaves one, also those that no request can wake.
//
// Threads: the run's own. Other threads read the notes at any time.
// Errors: std::system_error from IsRequested() and Register() if a mutex fails; a note never fails.
// Lifetime: keeps the run's cancellation object.
#pragma once

#include <memory>
#include <utility>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/wait_state.h"

namespace Orvane::Internal {

class WaitNote;

enum class WaitResult { Done, TimedOut, Cancelled };

class ORVANE_CONCURRENCY_API WaitingRun {
  public:
    // Null if the thread is in no run: nothing is requested, registered or noted then.
    explicit WaitingRun(std::shared_ptr<CancellationObject> run) noexcept : m_run(std::move(run)) {}

    bool IsRequested() const { return m_run && m_run->IsRequested(); }

    // Registers `notifier` with the run in place of any other, and returns it. The run holds it weakly: it stays registered
    // for as long as the caller keeps what is returned.
    template <typename Notifier>
    [[nodiscard]] std::shared_ptr<Notifier> Register(std::shared_ptr<Notifier> notifier) const {
        if (m_run) {
            m_run->RegisterNotifier(notifier);
        }
        return notifier;
    }

    // Calls `block` once, between two tests for a request, with a note. `block` returns whether it came back in time.
    template <typename Block>
    [[nodiscard]] WaitResult WaitUnlessCancelled(WaitKind kind, const void* object, Block block) const {
        if (IsRequested()) {
            return WaitResult::Cancelled;
        }
        const bool isInTime = WithNote(kind, object, block);
        if (IsRequested()) {
            return WaitResult::Cancelled;
        }
        return isInTime ? WaitResult::Done : WaitResult::TimedOut;
    }

    const std::shared_ptr<CancellationObject>& Get() const noexcept { return m_run; }

    // Says for a scope what the thread waits in. The end of an inner one brings the outer one back.
    class ORVANE_CONCURRENCY_API Note {
      public:
        Note(const WaitingRun& run, WaitKind kind, const void* object) noexcept;
        ~Note();
        Note(const Note&) = delete;
        Note& operator=(const Note&) = delete;

      private:
        WaitNote* const m_note;
        WaitState m_before;
        const WaitKind m_kind;  // for the trace
    };

  private:
    template <typename Block>
    bool WithNote(WaitKind kind, const void* object, Block& block) const {
        const Note note(*this, kind, object);
        return block();
    }

    std::shared_ptr<CancellationObject> m_run;
};

}  // namespace Orvane::Internal
