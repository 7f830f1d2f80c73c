// One line of a trace file. Two readers of it: a JSON parser, and in the native build, which has none, one of what is written.
#pragma once

#include <string>

#include "tests/support/trace_events.h"

namespace Zarvo::Test {

// Errors: std::runtime_error if the line is no event.
TraceEvent ParseTraceLine(const std::string& line);

}  // namespace Zarvo::Test
