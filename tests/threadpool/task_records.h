// The log records that tasks write about their runs.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "tests/support/recorded_reports.h"

namespace Zarvo::Test {

inline constexpr const wchar_t* kTaskCategory = L"Concurrency.Task";
inline constexpr const wchar_t* kStarted = L"Task [%s] started in thread [0x%x (%d)] of process [0x%x (%d)]";
inline constexpr const wchar_t* kStopped = L"Task [%s] stopped normally in thread [0x%x (%d)] of process [0x%x (%d)]";
inline constexpr const wchar_t* kGrowthTask = L"ThreadPool worker thread";

// The names of the tasks whose runs wrote this record, in order.
inline std::vector<std::wstring> TaskNames(const RecordedReports& reports, const wchar_t* format) {
    std::vector<std::wstring> names;
    for (const RecordedReport& report : reports.Matching(kTaskCategory, format)) {
        names.push_back(std::get<std::wstring>(report.arguments.at(0)));
    }
    return names;
}

inline std::ptrdiff_t CountTasks(const RecordedReports& reports, const wchar_t* format, const std::wstring& name) {
    const auto names = TaskNames(reports, format);
    return std::count(names.begin(), names.end(), name);
}

}  // namespace Zarvo::Test
