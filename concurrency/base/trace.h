// Events for the trace of the process (zarvo_orvane_logging/trace.h), if the logging library has one: the framework's own need
// not. So it is looked up when this module is loaded, and not imported. Ask IsTracing() first: it is three loads.
//
// An event takes one lock for some hundred nanoseconds, the last of all, and no memory from the heap. So it may stand under
// a lock of the library. On purpose it still does so at few places: docs/maintainers/locks.md lists them.
//
// Threads: any. What happens before the module's static objects are made is not traced.
// Errors: none.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "zarvo_orvane_logging/trace.h"

namespace Orvane::Internal {

using TraceArgument = OrvaneTrace::Argument;
using TracePhase = OrvaneTrace::Phase;

// Null if the logging library has no trace.
const OrvaneTraceAccess* FindTrace() noexcept;
extern const OrvaneTraceAccess* const g_trace;

inline bool IsTracing() noexcept {
    return g_trace != nullptr && g_trace->trace->IsOn();
}

// A moment on the calling thread, or where a span on it begins or ends.
inline void Trace(TracePhase phase, const char* category, const wchar_t* name,
                  std::initializer_list<TraceArgument> arguments = {}) noexcept {
    g_trace->write({phase, category, name, 0, arguments.begin(), arguments.size()});
}

// Where a span that may overlap with others begins or ends. Its id is an object that is there all the while.
inline void TraceSpanOf(const void* object, TracePhase phase, const char* category, const wchar_t* name,
                        std::initializer_list<TraceArgument> arguments = {}) noexcept {
    g_trace->write(
        {phase, category, name, reinterpret_cast<std::uintptr_t>(object), arguments.begin(), arguments.size()});
}

// What the calling thread is called.
inline void TraceThreadName(const wchar_t* name) noexcept {
    if (IsTracing()) {
        Trace(TracePhase::ThreadName, "", name);
    }
}

}  // namespace Orvane::Internal
