#include "zarvo_orvane_logging/report_recording.h"

#include <algorithm>
#include <cwchar>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include "zarvo_orvane_logging/process_lock.h"
#include "zarvo_orvane_logging/recording_store.h"
#include "zarvo_orvane_logging/report_format.h"
#include "zarvo_orvane_logging/report_line.h"

namespace Orvane::Reports {

namespace {

constinit ProcessLock g_recordsLock;

// On purpose: never destroyed, since destructors report too.
std::vector<RecordedReport>& Records() {
    static auto& records = *new std::vector<RecordedReport>;
    return records;
}

}  // namespace

bool KeepRecord(const PendingReport& report, va_list arguments) noexcept {
    try {
        RecordedReport record{report.severity,
                              report.kind,
                              report.category,
                              report.format,
                              ListArguments(report.format, arguments),
                              std::wstring(report.text),
                              report.threadId};
        const std::lock_guard lock(g_recordsLock);
        Records().push_back(std::move(record));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

std::vector<RecordedReport> Recorded() {
    const std::lock_guard lock(g_recordsLock);
    return Records();
}

void ClearRecorded() noexcept {
    const std::lock_guard lock(g_recordsLock);
    Records().clear();
}

std::size_t CountRecorded(const wchar_t* category, const wchar_t* format) noexcept {
    const std::lock_guard lock(g_recordsLock);
    return static_cast<std::size_t>(std::ranges::count_if(Records(), [=](const RecordedReport& record) {
        return record.category == category && (format == nullptr || record.format == format);
    }));
}

}  // namespace Orvane::Reports
