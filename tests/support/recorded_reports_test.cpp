#include "tests/support/recorded_reports.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "tests/support/thread.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Zarvo::Test {
namespace {

using namespace std::chrono_literals;

TEST(RecordedReports, KeepsNumbersCategoryFormatArgumentsTextAndThread) {
    const RecordedReports reports;
    g_OrvaneLogging.Report(4, 16, L"Tests", L"%s has %d of 0x%x", L"Ada", -3, 255U);

    ASSERT_EQ(reports.All().size(), 1U);
    const RecordedReport record = reports.Last();
    EXPECT_EQ(record.severity, 4);
    EXPECT_EQ(record.kind, 16);
    EXPECT_EQ(record.category, L"Tests");
    EXPECT_EQ(record.format, L"%s has %d of 0x%x");
    EXPECT_EQ(record.arguments, Arguments(L"Ada", -3, 255U));
    EXPECT_EQ(record.text, L"Ada has -3 of 0xff");
    EXPECT_EQ(record.threadId, ::GetCurrentThreadId());
}

TEST(RecordedReports, TellsArgumentsApartByValueAndByKind) {
    EXPECT_NE(Arguments(1), Arguments(2));
    EXPECT_NE(Arguments(1), Arguments(1U));
    EXPECT_NE(Arguments(L"1"), Arguments(1));
    EXPECT_NE(Arguments(1), Arguments(1, 1));
    EXPECT_EQ(Arguments(L"a", 7UL), Arguments(L"a", 7ULL));
}

TEST(RecordedReports, SelectsByCategoryAndFormat) {
    const RecordedReports reports;
    g_OrvaneLogging.Report(1, 16, L"Left", L"one");
    g_OrvaneLogging.Report(1, 16, L"Right", L"one");
    g_OrvaneLogging.Report(1, 16, L"Left", L"two");

    EXPECT_EQ(reports.Count(L"Left"), 2U);
    EXPECT_EQ(reports.Count(L"Left", L"one"), 1U);
    EXPECT_EQ(reports.Count(L"Middle"), 0U);
    ASSERT_EQ(reports.Matching(L"Left").size(), 2U);
    EXPECT_EQ(reports.Matching(L"Left")[1].format, L"two");
    ASSERT_EQ(reports.Matching(L"Right", L"one").size(), 1U);
    EXPECT_TRUE(reports.Matching(L"Right", L"two").empty());
}

TEST(RecordedReports, LeavesOutWhatCameBeforeAndStopsAtItsEnd) {
    {
        const RecordedReports earlier;
        g_OrvaneLogging.Report(1, 16, L"Tests", L"earlier");
    }
    g_OrvaneLogging.Report(1, 16, L"Tests", L"between");
    RecordedReports reports;
    EXPECT_TRUE(reports.All().empty());
    EXPECT_THROW(reports.Last(), std::out_of_range);

    g_OrvaneLogging.Report(1, 16, L"Tests", L"now");
    EXPECT_EQ(reports.All().size(), 1U);
    reports.Clear();
    EXPECT_TRUE(reports.All().empty());
}

TEST(RecordedReports, WaitsForARecordOfAnotherThread) {
    const RecordedReports reports;
    Thread thread([] {
        PauseBriefly();
        g_OrvaneLogging.Report(1, 16, L"Tests", L"late");
        g_OrvaneLogging.Report(1, 16, L"Tests", L"late");
    });

    EXPECT_TRUE(reports.WaitFor(L"Tests", L"late", 2));
    EXPECT_FALSE(reports.WaitFor(L"Tests", L"late", 3, 20ms));
    EXPECT_FALSE(reports.WaitFor(L"Tests", L"never", 1, 20ms));
}

}  // namespace
}  // namespace Zarvo::Test
