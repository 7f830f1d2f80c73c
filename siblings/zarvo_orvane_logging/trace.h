// The trace of the process: what happened when, on which thread, as a file that Perfetto and chrome://tracing show.
//
// Nothing is traced unless the environment variable ZARVO_TRACE names a file. It is read once, at the first event.
#pragma once

#include <atomic>
#include <cstddef>

#include "zarvo_orvane_logging/export.h"

// The trace. There is one: g_OrvaneTrace.
//
// Threads: every member may be called from any thread at any time, also from static constructors and destructors and
//     from a terminate handler. Events stand in the file in the order of their times.
// Recursion: nothing is called back.
// Cancellation: no cancellation points.
// Errors: none; never throws. If the file takes no more, standard error says so once, and the trace is off from then on.
// Memory: it orders nothing. An event needs no memory from the heap.
// Lifetime: the object is there before any other code runs and is never destroyed.
class OrvaneTrace {
  public:
    // What an event is: its letter in the file.
    enum class Phase : char {
        Begin = 'B',  // of a span on the calling thread; spans nest
        End = 'E',  // of the span that the thread began last
        AsyncBegin = 'b',  // of a span that has an id; such spans may overlap
        AsyncEnd = 'e',  // of the span with the same category and id
        Instant = 'i',  // a moment on the calling thread
        ThreadName = 'M',  // names the calling thread
    };

    // A value beside an event. The first of the three that is set is written; without a key nothing is.
    //
    // Contract: a value.
    struct Argument {
        const char* key = "";  // in ASCII, without anything that JSON would escape
        const wchar_t* text = nullptr;  // null: none
        const char* utf8 = nullptr;  // null: none
        long long number = 0;  // when there is no text
    };

    // One event.
    //
    // Contract: a value.
    struct Event {
        Phase phase = Phase::Instant;  // what it is
        const char* category = "";  // as a key
        const wchar_t* name = nullptr;  // of the span, the moment or the thread
        unsigned long long id = 0;  // of a span that has one
        const Argument* arguments = nullptr;  // null if there are none
        std::size_t argumentCount = 0;  // how many
    };

    // Not for callers.
    constexpr OrvaneTrace() = default;
    OrvaneTrace(const OrvaneTrace&) = delete;
    OrvaneTrace& operator=(const OrvaneTrace&) = delete;

    // Whether to make events: one load. May be true for one too many until the environment has been read.
    [[nodiscard]] bool IsOn() const noexcept { return m_isOn.load(std::memory_order_relaxed); }

    // Writes the event; does nothing if the trace is off. The system has it when the call returns: it outlives whatever
    // happens to the process next. GetLastError is left as it was.
    // Errors: none. A text of more than 1000 bytes is cut and ends with "...".
    // Lifetime: what the event refers to is read during the call only. A null name is written as an empty one.
    ZARVO_ORVANE_LOGGING_API void Write(const Event& event) noexcept;

  private:
    std::atomic<bool> m_isOn = true;  // until the environment has been read
};

// The trace that everybody writes to.
ZARVO_ORVANE_LOGGING_API extern OrvaneTrace g_OrvaneTrace;

// Not for callers.
//
// The trace for a module that must also run beside a logging library without one, and so may not import it. It looks the function
// up by its name; what that returns is never null.
struct OrvaneTraceAccess {
    const OrvaneTrace* trace;  // to be asked IsOn()
    void (*write)(const OrvaneTrace::Event& event) noexcept;  // its Write()
};
extern "C" ZARVO_ORVANE_LOGGING_API const OrvaneTraceAccess* ZarvoTraceAccess() noexcept;
