#include "zarvo_orvane_logging/report_recording.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/support/thread.h"
#include "zarvo_orvane_logging/orvane_logging.h"

using Orvane::Reports::ClearRecorded;
using Orvane::Reports::CountRecorded;
using Orvane::Reports::Recorded;
using Orvane::Reports::RecordedReport;
using Orvane::Reports::ReportArgument;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Zarvo::Test::Thread;

namespace {

using Sink = OrvaneLogging::Sink;

class ReportRecording : public testing::Test {
  protected:
    ReportRecording() {
        ClearRecorded();
        g_OrvaneLogging.SetSink(Sink::Recording);
    }
    ~ReportRecording() override {
        g_OrvaneLogging.SetSink(Sink::None);
        g_OrvaneLogging.SetMinimumLevel(0);
        ClearRecorded();
    }
};

ReportArgument Signed(long long value) {
    return value;
}

ReportArgument Unsigned(unsigned long long value) {
    return value;
}

ReportArgument Text(const wchar_t* value) {
    return std::wstring(value);
}

}  // namespace

TEST_F(ReportRecording, ListsEveryKindOfArgument) {
    int target = 0;
    g_OrvaneLogging.Report(1, 16, L"test", L"%d %i %c %u %x %X %lu %llu %zu %lld %p %s %hs %S %% %.3s", -1, -2, L'c',
                           3u, 4u, 5u, 7ul, 8ull, std::size_t{9}, -10ll, &target, L"wide", "narrow", "also narrow",
                           L"cut here");
    ASSERT_THAT(Recorded(), SizeIs(1));
    EXPECT_THAT(Recorded()[0].arguments,
                ElementsAre(Signed(-1), Signed(-2), Signed(L'c'), Unsigned(3), Unsigned(4), Unsigned(5), Unsigned(7),
                            Unsigned(8), Unsigned(9), Signed(-10), ReportArgument(static_cast<const void*>(&target)),
                            Text(L"wide"), Text(L"narrow"), Text(L"also narrow"), Text(L"cut")));
}

TEST_F(ReportRecording, ArgumentIsTheValueWithoutWidth) {
    g_OrvaneLogging.Report(1, 16, L"test", L"%10s|%08x", L"name", 0xBEEFu);
    ASSERT_THAT(Recorded(), SizeIs(1));
    EXPECT_THAT(Recorded()[0].arguments, ElementsAre(Text(L"name"), Unsigned(0xBEEF)));
    EXPECT_EQ(Recorded()[0].text, L"      name|0000beef");
}

TEST_F(ReportRecording, TextsOutliveTheCall) {
    std::wstring category = L"category";
    std::wstring format = L"%s";
    std::wstring argument = L"argument";
    g_OrvaneLogging.Report(1, 16, category.c_str(), format.c_str(), argument.c_str());
    category = format = argument = L"overwritten";
    ASSERT_THAT(Recorded(), SizeIs(1));
    EXPECT_EQ(Recorded()[0].category, L"category");
    EXPECT_EQ(Recorded()[0].format, L"%s");
    EXPECT_THAT(Recorded()[0].arguments, ElementsAre(Text(L"argument")));
}

TEST_F(ReportRecording, LastTextOfTheFailedRescheduleIsReadAsNarrow) {
    constexpr const wchar_t* kFormat = L"Task reschedule failed in thread [0x%x (%d)] of process [0x%x (%d)]. %s";
    g_OrvaneLogging.Report(4, 16, L"ScopedReset.dtor", kFormat, 26u, 26, 11u, 11, "narrow reason");
    ASSERT_THAT(Recorded(), SizeIs(1));
    EXPECT_THAT(Recorded()[0].arguments,
                ElementsAre(Unsigned(26), Signed(26), Unsigned(11), Signed(11), Text(L"narrow reason")));
}

TEST_F(ReportRecording, NullTextsAreKeptAsShown) {
    g_OrvaneLogging.Report(1, 16, nullptr, L"%s %hs", nullptr, nullptr);
    g_OrvaneLogging.Report(1, 16, nullptr, nullptr);
    ASSERT_THAT(Recorded(), SizeIs(2));
    EXPECT_EQ(Recorded()[0].category, L"(null)");
    EXPECT_THAT(Recorded()[0].arguments, ElementsAre(Text(L"(null)"), Text(L"(null)")));
    EXPECT_EQ(Recorded()[1].format, L"(null)");
}

TEST_F(ReportRecording, MessageIsKeptAsItIsNotAsALine) {
    g_OrvaneLogging.Report(1, 16, L"test", L"two\nlines");
    ASSERT_THAT(Recorded(), SizeIs(1));
    EXPECT_EQ(Recorded()[0].text, L"two\nlines");
}

TEST_F(ReportRecording, RecordsOutlastAChangeOfTheSink) {
    g_OrvaneLogging.Report(1, 16, L"test", L"kept");
    g_OrvaneLogging.SetSink(Sink::None);
    g_OrvaneLogging.Report(1, 16, L"test", L"not kept");
    g_OrvaneLogging.SetSink(Sink::Recording);
    EXPECT_EQ(CountRecorded(L"test", L"kept"), 1u);
    EXPECT_EQ(CountRecorded(L"test", L"not kept"), 0u);
}

TEST_F(ReportRecording, ThreadsLoseNothingAndKeepTheirOrder) {
    constexpr int kThreads = 4;
    constexpr int kRecords = 2000;
    std::vector<Thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < kRecords; ++i) {
                g_OrvaneLogging.Report(1, 16, L"test", L"%d %d", thread, i);
            }
        });
    }
    for (Thread& thread : threads) {
        thread.join();
    }

    std::vector<long long> next(kThreads, 0);
    for (const RecordedReport& record : Recorded()) {
        const auto thread = static_cast<std::size_t>(std::get<long long>(record.arguments.at(0)));
        ASSERT_EQ(std::get<long long>(record.arguments.at(1)), next.at(thread)++);
    }
    EXPECT_THAT(next, testing::Each(kRecords));
}
