// A value of a record, as its format has it.
#pragma once

#include <string>
#include <variant>

namespace Orvane::Reports {

// A value behind a conversion: %d, %i and %c give long long; %u, %x, %X and %o unsigned long long; %f, %e and %g
// double; every kind of %s a text, "(null)" for a null pointer; %p the pointer. A width or precision given as `*` is
// not a value.
using ReportArgument = std::variant<long long, unsigned long long, double, std::wstring, const void*>;

}  // namespace Orvane::Reports
