// Where the recording sink keeps its records.
#pragma once

#include <cstdarg>

namespace Orvane::Reports {

struct PendingReport;

// Returns false if there is no memory for the record.
bool KeepRecord(const PendingReport& report, va_list arguments) noexcept;

}  // namespace Orvane::Reports
