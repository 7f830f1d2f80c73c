#include "concurrency/base/report.h"

#include <gtest/gtest.h>

#include "tests/support/recorded_reports.h"

namespace {

using namespace Zarvo::Test;

TEST(ReportNoThrow, PassesEverythingOnToTheLog) {
    const RecordedReports reports;
    Orvane::Internal::ReportNoThrow(8, 4, L"Tests", L"%s: 0x%x, %d", L"name", 0x80070005U, -1);

    ASSERT_EQ(reports.All().size(), 1U);
    const RecordedReport record = reports.Last();
    EXPECT_EQ(record.severity, 8);
    EXPECT_EQ(record.kind, 4);
    EXPECT_EQ(record.category, L"Tests");
    EXPECT_EQ(record.format, L"%s: 0x%x, %d");
    EXPECT_EQ(record.arguments, Arguments(L"name", 0x80070005U, -1));
}

TEST(ReportNoThrow, NeedsNoArguments) {
    const RecordedReports reports;
    Orvane::Internal::ReportNoThrow(4, 16, L"Tests", L"nothing to add");

    EXPECT_EQ(reports.Last().text, L"nothing to add");
    EXPECT_TRUE(reports.Last().arguments.empty());
}

static_assert(noexcept(Orvane::Internal::ReportNoThrow(1, 16, L"", L"")));

}  // namespace
