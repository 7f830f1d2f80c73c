// Formats a message, and lists the values that went into it.
#pragma once

#include <cstdarg>
#include <vector>

#include "zarvo_orvane_logging/growing_text.h"
#include "zarvo_orvane_logging/report_argument.h"

namespace Orvane::Reports {

// Appends the formatted message to `text`.
// Errors: none; never throws.
void AppendMessage(const wchar_t* format, va_list arguments, WideText& text) noexcept;

// Errors: std::bad_alloc.
std::vector<ReportArgument> ListArguments(const wchar_t* format, va_list arguments);

}  // namespace Orvane::Reports
