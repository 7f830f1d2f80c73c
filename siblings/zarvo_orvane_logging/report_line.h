// One record as one line of text:
//
//     2026-11-20T22:16:30.1234567Z 4 16 1184:2316 [Scheduler] TaskImpl sum taking longer to execute ...
//
// time (UTC, 100 ns), severity, kind, process id and thread id, category, message. Control characters are written as
// \n, \r, \t or \x1b, so that a record is never more than one line and cannot imitate another.
#pragma once

#include <cstdarg>
#include <string_view>

#include "zarvo_orvane_logging/growing_text.h"

namespace Orvane::Reports {

// A record on its way to the sink. Lifetime: borrows everything; lives during one call of Report.
struct PendingReport {
    unsigned long long time;  // as a FILETIME: 100 ns since 1601, UTC
    unsigned long threadId;
    int severity;
    int kind;
    const wchar_t* category;
    const wchar_t* format;
    std::wstring_view text;  // the formatted message
};

// A line comes with its line feed.
// Errors: none; never throws. Without memory the line is cut, says so, and keeps its line feed.
void ComposeLine(const PendingReport& report, WideText& line) noexcept;
void EncodeUtf8(std::wstring_view line, Utf8Text& bytes) noexcept;

}  // namespace Orvane::Reports
