// The line in the log, and what the environment asks for.
#include "concurrency/figures/figures_reporter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures_answer.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/allocations.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kCategory = L"Concurrency.Figures";
constexpr const wchar_t* kCannotBeSaid = L"The figures cannot be said: %hs";
constexpr const wchar_t* kIgnored = L"%s: \"%s\" is not %s. It is ignored.";

class FiguresReporterTest : public testing::Test {
  protected:
    FiguresReporterTest() { Set(nullptr, nullptr); }
    ~FiguresReporterTest() override { Set(nullptr, nullptr); }

    static void Set(const wchar_t* figures, const wchar_t* ps) {
        SetEnvironmentVariableW(L"ZARVO_FIGURES", figures);
        SetEnvironmentVariableW(L"ZARVO_PS", ps);
    }

    std::size_t Lines() const { return m_reports.Count(kCategory, L"%s"); }

    // There are some of this format, as failures that the library survives.
    void ExpectFailures(const wchar_t* format) const {
        const auto failures = m_reports.Matching(kCategory, format);
        EXPECT_FALSE(failures.empty());
        for (const RecordedReport& failure : failures) {
            EXPECT_EQ(failure.severity, 4);
            EXPECT_EQ(failure.kind, 16);
        }
    }

    RecordedReports m_reports;
};

TEST_F(FiguresReporterTest, SaysALineAtEachInterval) {
    const FiguresReporter reporter({10ms, false});
    EXPECT_TRUE(Eventually([this] { return Lines() >= 3; }));
    EXPECT_TRUE(m_reports.Last().text.starts_with(L"0 workers, 0 idle, 0 queued; growths "));
}

TEST_F(FiguresReporterTest, SaysNothingBeforeTheIntervalIsOver) {
    const FiguresReporter reporter({24h, false});
    Sleep(50);  // to show that nothing happens
    EXPECT_EQ(Lines(), 0U);
}

TEST_F(FiguresReporterTest, SaysOneLineInEachInterval) {
    FakeMonotonicClock clock(1h);
    const FiguresReporter reporter({20ms, false});
    ASSERT_TRUE(Eventually([&] { return clock.Reads() >= 2; }));  // it knows when the first line is due
    Sleep(50);
    EXPECT_EQ(Lines(), 0U);
    for (std::size_t lines = 1; lines <= 3; ++lines) {
        clock.Advance(20ms);
        EXPECT_TRUE(Eventually([&] { return Lines() == lines; }));
        Sleep(50);
        EXPECT_EQ(Lines(), lines);
    }
    EXPECT_EQ(m_reports.Last().severity, 2);
    EXPECT_EQ(m_reports.Last().kind, 16);
}

TEST_F(FiguresReporterTest, SaysTheNextLineAfterOneWithoutMemory) {
    const FiguresReporter reporter({10ms, false});
    std::size_t before = 0;
    {
        const FailingNew failing(1, AskedBy::OtherThreads);
        EXPECT_TRUE(Eventually([&] { return failing.HasFailed(); }));
        EXPECT_TRUE(Eventually([this] { return m_reports.Count(kCategory, kCannotBeSaid) == 1; }));
        before = Lines();
    }
    ExpectFailures(kCannotBeSaid);
    EXPECT_TRUE(Eventually([&] { return Lines() > before; }));
}

TEST_F(FiguresReporterTest, IsStartedOnceForBothOrEither) {
    for (const wchar_t* const figures : {L"3600", L""}) {
        Set(figures, L"1");
        const ThreadStarts starts;
        StartFiguresReporter();
        StartFiguresReporter();
        EXPECT_EQ(starts.Count(), 1);
        StopFiguresReporter();
    }
}

TEST_F(FiguresReporterTest, WithoutAnEventIsSaidAndTheLibraryWorks) {
    Set(L"1", nullptr);
    const ImportPatch noEvents(
        LibraryUnderTest(), "CreateEventW",
        +[](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) { return HANDLE(nullptr); });
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(m_reports.Count(kCategory, kCannotBeSaid), 1U);
}

TEST_F(FiguresReporterTest, WithoutMemoryForTheEnvironmentIgnoresIt) {
    Set(L"00000000000000000060", L"1");
    FiguresSettings settings;
    {
        const FailingNew failing(1);
        settings = ReadFiguresSettings();
    }
    EXPECT_EQ(settings.interval, 0ms);
    ExpectFailures(L"ZARVO_FIGURES and ZARVO_PS: out of memory. They are ignored.");
}

TEST_F(FiguresReporterTest, NeedsNoWorkerAndEndsWithTheLastUninitialisation) {
    Set(L"3600", nullptr);
    const ThreadStarts starts;
    {
        const ConcurrencyLifetime lifetime;
        const ConcurrencyLifetime another;
        EXPECT_EQ(starts.Count(), 1);
    }
    {
        const ConcurrencyLifetime again;
        EXPECT_EQ(starts.Count(), 2);
    }
}

TEST_F(FiguresReporterTest, IsNotThereUnlessItIsAskedFor) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(starts.Count(), 0);
    const std::wstring name = FiguresAnswer::NameOf(L"ask", GetCurrentProcessId());
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, name.c_str());
    EXPECT_NE(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    CloseHandle(event);
}

TEST_F(FiguresReporterTest, ThatCannotBeStartedIsSaidAndTheLibraryWorks) {
    Set(L"1", nullptr);
    ThreadStarts starts;
    starts.FailAt(1);
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(m_reports.Count(kCategory, kCannotBeSaid), 1U);
    ExpectFailures(kCannotBeSaid);
}

TEST_F(FiguresReporterTest, ReadsTheEnvironment) {
    EXPECT_EQ(ReadFiguresSettings().interval, 0ms);
    EXPECT_FALSE(ReadFiguresSettings().answers);
    Set(L"86400", L"1");
    EXPECT_EQ(ReadFiguresSettings().interval, 24h);
    EXPECT_TRUE(ReadFiguresSettings().answers);
    Set(nullptr, L"0");
    EXPECT_FALSE(ReadFiguresSettings().answers);
    EXPECT_EQ(m_reports.Count(kCategory, kIgnored), 0U);
}

TEST_F(FiguresReporterTest, SaysWhatItDoesNotUnderstand) {
    std::size_t said = 0;
    for (const wchar_t* value :
         {L"0", L"-1", L"86401", L"often", L"5s", L" ", L"11111111111111111111111111111111111111111"}) {
        Set(value, nullptr);
        EXPECT_EQ(ReadFiguresSettings().interval, 0ms);
        EXPECT_EQ(m_reports.Count(kCategory, kIgnored), ++said);
    }
    Set(nullptr, L"yes");
    EXPECT_FALSE(ReadFiguresSettings().answers);
    EXPECT_EQ(m_reports.Count(kCategory, kIgnored), said + 1);
    ExpectFailures(kIgnored);
}

// Objects that another process has made under these names.
TEST_F(FiguresReporterTest, DoesNotAnswerWhereTheNamesAreTaken) {
    const std::wstring name = FiguresAnswer::NameOf(L"ask", GetCurrentProcessId());
    const HANDLE taken = CreateEventW(nullptr, TRUE, TRUE, name.c_str());
    {
        const FiguresReporter reporter({0ms, true});
    }
    CloseHandle(taken);
    EXPECT_EQ(m_reports.Count(kCategory, L"zarvo-ps gets no answer: %hs"), 1U);
    ExpectFailures(L"zarvo-ps gets no answer: %hs");
    EXPECT_EQ(Lines(), 0U);
    const HANDLE free = CreateEventW(nullptr, TRUE, TRUE, name.c_str());
    EXPECT_NE(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    CloseHandle(free);
}

}  // namespace
