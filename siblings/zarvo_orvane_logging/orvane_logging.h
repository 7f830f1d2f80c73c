// The log of the process: every library of the framework reports through the one object g_OrvaneLogging.
//
// Nothing is logged until somebody asks for it, with the environment variables ZARVO_LOG and ZARVO_LOG_LEVEL, which
// are read once, at the first use, or with the calls below, which overrule them from then on.
#pragma once

#include "zarvo_orvane_logging/export.h"

// The log. There is one: g_OrvaneLogging.
//
// Threads: every member may be called from any thread at any time, also from static constructors and destructors and
//     from a terminate handler. A record is written whole, with one write; records of one thread keep their order.
// Recursion: Report must not be called from inside a sink; the library's own sinks never do.
// Cancellation: no cancellation points.
// Errors: only SetFileSink() throws.
// Memory: it orders nothing but the records.
// Lifetime: the object is there before any other code runs and is never destroyed.
class ZARVO_ORVANE_LOGGING_API OrvaneLogging {
  public:
    // Where records go, the file aside (SetFileSink).
    enum class Sink {
        None,           // nowhere; a report costs one read of an atomic number
        StandardError,  // in UTF-8
        Recording,      // kept in memory, for tests: see report_recording.h
    };

    // Not for callers.
    constexpr OrvaneLogging() = default;
    OrvaneLogging(const OrvaneLogging&) = delete;
    OrvaneLogging& operator=(const OrvaneLogging&) = delete;

    // Writes one record: `format` is a wide printf format without real and octal numbers (%s takes wide text, %hs
    // narrow), with its arguments.
    // `severity` is 1 for the course of things, 4 for a failure that is survived, 8 for the last words of a process.
    // `kind` groups records as their author sees fit.
    //
    // The record is in the sink's hands when the call returns: it outlives whatever happens to the process next.
    // Errors: none; never throws. Without memory a long record is cut, and says so. A conversion that the library does
    //     not know ends the formatting: the rest of `format` is written as it stands. GetLastError is left as it was.
    // Lifetime: `category` and `format` are read during the call only. Null is shown as "(null)".
    void Report(int severity, int kind, const wchar_t* category, const wchar_t* format, ...) noexcept;

    // Sends all later records to `sink`, and closes the log file if there was one.
    void SetSink(Sink sink) noexcept;

    // Appends all later records to the file `path`, which is created when missing; its folder must be there. Several
    // processes may write to one file.
    // Errors: std::system_error if the file cannot be opened; the sink before it stays. std::invalid_argument for null.
    void SetFileSink(const wchar_t* path);

    // Drops all later records whose severity is below `severity`.
    void SetMinimumLevel(int severity) noexcept;
};

// The log that everybody writes to.
ZARVO_ORVANE_LOGGING_API extern OrvaneLogging g_OrvaneLogging;
