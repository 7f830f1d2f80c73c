#include "tests/support/recorded_reports.h"

#include <limits>
#include <stdexcept>

#include "zarvo_orvane_logging/orvane_logging.h"

namespace Zarvo::Test {

RecordedReports::RecordedReports() {
    Orvane::Reports::ClearRecorded();
    g_OrvaneLogging.SetMinimumLevel(std::numeric_limits<int>::min());
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::Recording);
}

RecordedReports::~RecordedReports() {
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::None);
    Orvane::Reports::ClearRecorded();
}

std::vector<RecordedReport> RecordedReports::All() const {
    return Orvane::Reports::Recorded();
}

std::vector<RecordedReport> RecordedReports::Matching(const wchar_t* category, const wchar_t* format) const {
    std::vector<RecordedReport> records = All();
    std::erase_if(records, [=](const RecordedReport& record) {
        return record.category != category || (format != nullptr && record.format != format);
    });
    return records;
}

std::size_t RecordedReports::Count(const wchar_t* category, const wchar_t* format) const {
    return Orvane::Reports::CountRecorded(category, format);
}

RecordedReport RecordedReports::Last() const {
    const std::vector<RecordedReport> records = All();
    if (records.empty()) {
        throw std::out_of_range("RecordedReports: nothing was reported");
    }
    return records.back();
}

bool RecordedReports::WaitFor(const wchar_t* category, const wchar_t* format, std::size_t count,
                              std::chrono::nanoseconds timeout) const {
    return Eventually([&] { return Count(category, format) >= count; }, timeout);
}

void RecordedReports::Clear() {
    Orvane::Reports::ClearRecorded();
}

}  // namespace Zarvo::Test
