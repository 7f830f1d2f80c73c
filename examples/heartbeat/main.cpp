// Three recurrent jobs on one scheduler, and what it did with them.
//
//   Pulse    keeps time: ten beats, one in each period
//   Slow     takes two and a half periods for each run: the periods that it misses are skipped and reported
//   Sleeper  falls asleep for an hour in its third run, and is cancelled there
//
// Exit code: 0.
#include <chrono>
#include <format>
#include <iostream>
#include <latch>
#include <map>
#include <string>
#include <syncstream>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

namespace {

using namespace std::chrono_literals;
using Orvane::Schedule;
using Orvane::Tracker;

constexpr auto kPeriod = 100ms;
constexpr int kBeats = 10;

// How often each job has run. A job's runs never overlap, so that it may count without a lock.
struct Runs {
    int pulse = 0;
    int slow = 0;
    int sleeper = 0;
};

// One line with the time since the first one. Jobs run side by side: it is written whole.
void Say(const std::wstring& line) {
    static const auto start = std::chrono::steady_clock::now();
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::wosyncstream(std::wcout) << std::format(L"{:5} ms  {}\n", elapsed.count(), line);
}

// Returns when Pulse has had its beats and no job runs any more.
void RunJobs(Runs& runs) {
    Say(std::format(L"Main: three jobs, each due every {} ms", kPeriod.count()));
    std::latch lastBeat(1);
    std::latch asleep(1);

    // The trackers come after what their jobs refer to: going first, they wait for the run that is under way.
    const Tracker pulse = Schedule(L"Pulse", 0ms, kPeriod, [&] {
        Say(std::format(L"Pulse: beat {}", ++runs.pulse));
        if (runs.pulse == kBeats) {
            lastBeat.count_down();
        }
    });

    const Tracker slow = Schedule(L"Slow", 0ms, kPeriod, [&] {
        Say(std::format(L"Slow: begins run {}", ++runs.slow));
        Orvane::CancellableSleep(250);
    });

    Tracker sleeper = Schedule(L"Sleeper", 0ms, kPeriod, [&] {
        Say(std::format(L"Sleeper: run {}", ++runs.sleeper));
        if (runs.sleeper == 3) {
            asleep.count_down();
            try {
                Orvane::CancellableSleep(3'600'000);
            } catch (const Orvane::CancelRequestedException&) {
                Say(L"Sleeper: cancelled in its sleep");
                throw;  // or it would count as a run like any other
            }
        }
    });

    asleep.wait();
    sleeper.Cancel();
    sleeper.Wait();
    Say(L"Main: Sleeper has ended, the others go on");

    lastBeat.wait();
}

// The log keeps one record for each period that was skipped.
std::map<std::wstring, int> SkippedPeriods() {
    std::map<std::wstring, int> reports;
    for (const auto& record : Orvane::Reports::Recorded()) {
        ++reports[std::format(L"[{}] {}", record.category, record.text)];
    }
    return reports;
}

}  // namespace

int main() {
    // Failures only, and into memory, where they can be counted. Most programs leave both to ZARVO_LOG.
    g_OrvaneLogging.SetMinimumLevel(4);
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::Recording);

    Runs runs;
    {
        // Its end waits for the records that the pool still has to write.
        const Orvane::ConcurrencyLifetime lifetime;
        RunJobs(runs);
    }

    std::wcout << std::format(L"\nRuns: Pulse {}, Slow {}, Sleeper {}\n", runs.pulse, runs.slow, runs.sleeper);
    std::wcout << L"The scheduler reported:\n";
    for (const auto& [report, times] : SkippedPeriods()) {
        std::wcout << std::format(L"{:3} x {}\n", times, report);
    }
}
