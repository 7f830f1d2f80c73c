#include "concurrency/cancellation/waiting_run.h"

#include "concurrency/base/clock.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/cancellation/traced_wait.h"

namespace Orvane::Internal {

namespace {

// Null on another thread than the run's own, as when a task runs on two threads at a time: a note has one writer.
WaitNote* NoteOf(const WaitingRun& waiting) noexcept {
    const Run* const run = Run::Of(waiting.Get());
    return run != nullptr && run->ThreadId() == ::GetCurrentThreadId() ? run->note : nullptr;
}

}  // namespace

WaitingRun::Note::Note(const WaitingRun& run, WaitKind kind, const void* object) noexcept
    : m_note(NoteOf(run)), m_kind(kind) {
    if (m_note != nullptr) {
        m_before = m_note->Exchange({kind, object, CoarseClock::Ticks()});
    }
    TraceWaitBegins(this, kind, object);
}

WaitingRun::Note::~Note() {
    TraceWaitEnds(this, m_kind);
    if (m_note != nullptr) {
        m_note->Exchange(m_before);
    }
}

}  // namespace Orvane::Internal
