// What the environment asks the log to do.
#pragma once

#include <limits>
#include <string>

#include "zarvo_orvane_logging/line_output.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Orvane::Reports {

struct EnvironmentSettings {
    OrvaneLogging::Sink sink = OrvaneLogging::Sink::None;
    LineFile file;  // when open, it is the sink
    int minimumLevel = std::numeric_limits<int>::min();
};

// Reads ZARVO_LOG and ZARVO_LOG_LEVEL.
// Errors: none; never throws. A value that cannot be honoured is explained on standard error and left out.
EnvironmentSettings ReadEnvironmentSettings() noexcept;

// Empty when the variable is not set. Errors: std::bad_alloc.
std::wstring EnvironmentVariable(const wchar_t* name);

// Says on standard error, in a line of its own, what is wrong. Errors: std::bad_alloc.
void Explain(const std::wstring& problem);

}  // namespace Orvane::Reports
