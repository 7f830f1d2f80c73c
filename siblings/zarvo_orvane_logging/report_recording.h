// For tests only: what the recording sink has kept (OrvaneLogging::Sink::Recording).
//
// Records are kept in the order in which they were reported, across changes of the sink, until they are cleared.
//
// Threads: every function may be called from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "zarvo_orvane_logging/export.h"
#include "zarvo_orvane_logging/report_argument.h"

namespace Orvane::Reports {

// A record, as Report() got it.
//
// Contract: a value.
struct RecordedReport {
    int severity;                           // 1, 4 or 8
    int kind;                               // chosen by its author
    std::wstring category;                  // who reports
    std::wstring format;                    // before the arguments are in it
    std::vector<ReportArgument> arguments;  // in the order of the format
    std::wstring text;                      // the formatted message
    unsigned long threadId;                 // of the thread that reported
};

// All that have been kept, in order. Errors: std::bad_alloc.
ZARVO_ORVANE_LOGGING_API std::vector<RecordedReport> Recorded();

// Forgets them.
ZARVO_ORVANE_LOGGING_API void ClearRecorded() noexcept;

// How many records of this category, and of this format if one is given, have been kept.
ZARVO_ORVANE_LOGGING_API std::size_t CountRecorded(const wchar_t* category, const wchar_t* format = nullptr) noexcept;

}  // namespace Orvane::Reports
