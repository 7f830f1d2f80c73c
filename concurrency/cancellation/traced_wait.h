// What a thread waits in, for the trace: a span for each note of a wait.
//
// Threads: any. Errors: none.
#pragma once

#include "concurrency/base/trace.h"
#include "concurrency/cancellation/wait_state.h"

namespace Orvane::Internal {

void WriteWaitBegins(const void* note, WaitKind kind, const void* object) noexcept;
void WriteWaitEnds(const void* note, WaitKind kind) noexcept;

inline void TraceWaitBegins(const void* note, WaitKind kind, const void* object) noexcept {
    if (IsTracing()) {
        WriteWaitBegins(note, kind, object);
    }
}

inline void TraceWaitEnds(const void* note, WaitKind kind) noexcept {
    if (IsTracing()) {
        WriteWaitEnds(note, kind);
    }
}

}  // namespace Orvane::Internal
