// What ToText() and ToLine() make of figures.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "concurrency/figures/figures.h"

namespace {

using namespace Orvane;
using namespace std::chrono_literals;

Figures Some() {
    Figures figures;
    figures.pool = {16, 12, 3, 1'200ms, 1, 0};
    figures.schedule.entries = 4;
    figures.schedule.earliest = TimePoint();
    figures.schedule.skipped = 2;
    figures.schedule.lateness = {120, 90us, 80us, 400us, 1'200us};
    figures.done = 1'200;
    figures.failed = 3;
    figures.cancelled = 4;
    figures.unreadFailures = 1;
    NameFigures fetch;
    fetch.name = L"Fetch #";
    fetch.done = 1'200;
    fetch.failed = 3;
    fetch.cancelled = 4;
    fetch.waited = {1'207, 1'500ns, 900ns, 150us, 12ms};
    fetch.ran = {1'207, 15ms, 12ms, 150ms, 75s};
    figures.names.push_back(fetch);
    RunInfo run;
    run.name = L"Fetch 17";
    run.path = L"Import > Fetch 17";
    run.thread = 44;
    run.runs = 1'000ms;
    figures.runs.push_back(run);
    return figures;
}

TEST(TextOfFigures, HasALineForEachThing) {
    EXPECT_EQ(
        ToText(Some()),
        L"pool: 16 workers, 12 idle, 3 queued, the oldest for 1.2 s; growths 1, failed 0\n"
        L"schedule: 4 scheduled, one due, 2 skipped; late 120 x mean 90.0 us, p50 80.0 us, p99 400 us, max 1.2 ms\n"
        L"ended: 1200 done, 3 failed, 4 cancelled, 1 unread\n"
        L"  Fetch #: 1200 done, 3 failed, 4 cancelled; waited 1207 x mean 1.5 us, p50 900 ns, p99 150 us, max 12.0 ms"
        L"; ran 1207 x mean 15.0 ms, p50 12.0 ms, p99 150 ms, max 75.0 s\n"
        L"running: 1\n"
        L"  Import > Fetch 17: has run for 1.0 s, in no wait of the library, thread 44\n");
}

TEST(TextOfFigures, HasTwoDigitsOfEachTimeFromAMicrosecondOn) {
    const std::pair<std::chrono::nanoseconds, const wchar_t*> kTimes[] = {
        {0ns, L"0 ns"},         {999ns, L"999 ns"}, {1'000ns, L"1.0 us"},   {9'999ns, L"9.9 us"},
        {99'999ns, L"99.9 us"}, {100us, L"100 us"}, {999'999ns, L"999 us"}, {1ms, L"1.0 ms"},
        {99'999us, L"99.9 ms"}, {100ms, L"100 ms"}, {999'999us, L"999 ms"}, {1s, L"1.0 s"},
        {12'345ms, L"12.3 s"},  {100s, L"100 s"},
    };
    for (const auto& [time, text] : kTimes) {
        Figures figures;
        figures.schedule.lateness = {1, time, 0ns, 0ns, 0ns};
        EXPECT_NE(ToText(figures).find(L"late 1 x mean " + std::wstring(text) + L", p50 0 ns"), std::wstring::npos)
            << time.count();
    }
}

TEST(TextOfFigures, HasZerosForANameOfWhichNothingHasEnded) {
    Figures figures;
    figures.names.emplace_back().name = L"Fetch #";
    EXPECT_NE(ToText(figures).find(L"\n  Fetch #: 0 done, 0 failed, 0 cancelled\n"), std::wstring::npos);
}

TEST(TextOfFigures, SaysInHowLongTheFirstIsDue) {
    Figures figures;
    figures.schedule.entries = 1;
    figures.schedule.earliest = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now()) + 150s;
    EXPECT_NE(ToText(figures).find(L"1 scheduled, the first in 1"), std::wstring::npos);
}

TEST(TextOfFigures, HasOneLineForALog) {
    EXPECT_EQ(
        ToLine(Some()),
        L"16 workers, 12 idle, 3 queued, the oldest for 1.2 s; growths 1, failed 0; 4 scheduled, one due, 2 skipped; "
        L"1200 done, 3 failed, 4 cancelled, 1 unread; 1 running, the oldest Import > Fetch 17: has run for 1.0 s, in "
        L"no wait "
        L"of the library, thread 44");
    EXPECT_EQ(
        ToLine(Figures()),
        L"0 workers, 0 idle, 0 queued; growths 0, failed 0; 0 scheduled, 0 skipped; 0 done, 0 failed, 0 cancelled, 0 "
        L"unread; 0 running");
}

}  // namespace
