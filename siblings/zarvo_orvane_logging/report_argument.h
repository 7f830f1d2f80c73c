// A value of a record, as its format has it.
#pragma once

#include <string>
#include <variant>

namespace Orvane::Reports {

// A value behind a conversion: %d, %i and %c give long long; %u, %x and %X unsigned long long; every kind of %s a text,
// "(null)" for a null pointer; %p the pointer.
using ReportArgument = std::variant<long long, unsigned long long, std::wstring, const void*>;

}  // namespace Orvane::Reports
