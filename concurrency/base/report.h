// Log reports from places that must not throw: destructors, and the record before the process is ended.
#pragma once

#include "zarvo_orvane_logging/orvane_logging.h"

namespace Orvane::Internal {

// As OrvaneLogging::Report, but a sink that throws is ignored.
template <typename... Arguments>
void ReportNoThrow(int severity, int kind, const wchar_t* category, const wchar_t* format,
                   Arguments... arguments) noexcept {
    try {
        g_OrvaneLogging.Report(severity, kind, category, format, arguments...);
    } catch (...) {
        // On purpose nothing: there is nowhere left to say it.
    }
}

}  // namespace Orvane::Internal
