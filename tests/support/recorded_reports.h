// What the process has reported to its log while an object of this class lives.
//
// Threads: every member may be called from any thread.
// Lifetime: one at a time. It takes over the log: whatever sink was in use before is not restored.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/eventually.h"
#include "zarvo_orvane_logging/report_recording.h"

namespace Zarvo::Test {

using Orvane::Reports::RecordedReport;
using Orvane::Reports::ReportArgument;

// The arguments of a record, to compare with: wide text, signed numbers for %d, unsigned ones for %u and %x.
template <typename... Values>
std::vector<ReportArgument> Arguments(const Values&... values) {
    const auto convert = []<typename Value>(const Value& value) -> ReportArgument {
        if constexpr (std::is_signed_v<Value>) {
            return static_cast<long long>(value);
        } else if constexpr (std::is_unsigned_v<Value>) {
            return static_cast<unsigned long long>(value);
        } else {
            return std::wstring(value);
        }
    };
    return {convert(values)...};
}

class RecordedReports {
  public:
    RecordedReports();
    ~RecordedReports();
    RecordedReports(const RecordedReports&) = delete;
    RecordedReports& operator=(const RecordedReports&) = delete;

    std::vector<RecordedReport> All() const;

    // The records of the category; a null format stands for every format.
    std::vector<RecordedReport> Matching(const wchar_t* category, const wchar_t* format = nullptr) const;
    std::size_t Count(const wchar_t* category, const wchar_t* format = nullptr) const;

    // The newest record. Errors: std::out_of_range if there is none.
    RecordedReport Last() const;

    // Waits until there are at least `count` such records.
    [[nodiscard]] bool WaitFor(const wchar_t* category, const wchar_t* format, std::size_t count = 1,
                               std::chrono::nanoseconds timeout = kPatience) const;

    // Forgets what has been recorded so far.
    void Clear();
};

}  // namespace Zarvo::Test
