// Everything at once on the DLL, for minutes: nothing may be lost, nothing may grow, and every wait must end.
//
//   soak [--seconds N] [--warm-up N] [--patience N] [--leak handle|thread|memory|wake-up]
//
// A cycle is one life of the library, with all kinds of work in it. Between two cycles nothing runs, and what the process holds is
// compared with what it held after the warm-up. A leak on purpose shows that the soak sees it.
//
// Exit code: 0; 1 when something was wrong or has grown; 4 when a wait has not ended within the patience.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/soak/soak_work.h"
#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"
#include "tests/support/thread.h"

namespace {

using namespace Zarvo::Test;
using namespace std::chrono_literals;

struct Options {
    std::chrono::seconds time{60};
    std::chrono::seconds warmUp{5};
    std::chrono::seconds patience{60};
    std::string leak;
};

// One thing of the kind for each cycle.
void Leak(const std::string& kind) {
    if (kind == "handle") {
        CreateEventW(nullptr, TRUE, FALSE, nullptr);
    } else if (kind == "memory") {
        static std::list<std::vector<char>> kept;
        kept.emplace_back(100);
    } else if (kind == "thread") {
        static std::list<Thread> kept;
        kept.emplace_back([] { Sleep(INFINITE); });
    }
}

void RunCycle(SoakTally& tally, SoakWatch& watch, const StressRun& run, std::uint64_t cycle) {
    constexpr auto kPart = 400ms;
    const std::vector<void (*)(SoakScene)> load{&SoakJobs,    &SoakJobs,    &SoakGroups,  &SoakSchedules, &SoakLocks,
                                                &SoakCancels, &SoakCancels, &SoakPlugIns, &SoakProcesses, &SoakKills};
    std::atomic<bool> isOver = false;
    std::optional<Orvane::ConcurrencyLifetime> lifetime(std::in_place);
    {
        std::list<Thread> threads;
        for (std::size_t i = 0; i < load.size(); ++i) {
            threads.emplace_back([&, i] {
                try {
                    load[i]({tally, watch, isOver, run.Generator(static_cast<int>(cycle), i), cycle});
                } catch (const std::exception& error) {
                    tally.Fail(std::string("part ") + std::to_string(i) + " of the load: " + error.what());
                }
            });
        }
        Sleep(static_cast<DWORD>(kPart / 1ms));
        isOver = true;
    }
    const SoakWatch::Wait wait(watch, "the last uninitialisation");
    lifetime.reset();
    ++tally.cycles;
}

// When nothing of a cycle runs any more.
Resources WhenSettled(const Resources& start) {
    Resources now;
    static_cast<void>(Eventually([&] {
        now = Resources::Now();
        return now.threads == start.threads;
    }));
    return now;
}

double InMilliseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / 1e6;
}

void PrintTimes(const char* name, const SoakTimes& times) {
    std::printf("%-44s %10llu %10.2f %10.2f %10.2f\n", name, static_cast<unsigned long long>(times.Count()),
                InMilliseconds(times.Below(0.5)), InMilliseconds(times.Below(0.99)), InMilliseconds(times.Max()));
}

void PrintCounts(const SoakTally& tally, std::chrono::nanoseconds elapsed) {
    const double seconds = std::chrono::duration<double>(elapsed).count();
    const auto print = [seconds](const char* name, std::uint64_t count) {
        std::printf("%-36s %10llu %10.1f\n", name, static_cast<unsigned long long>(count),
                    static_cast<double>(count) / seconds);
    };
    std::printf("\n%-36s %10s %10s\n", "in the soak", "count", "a second");
    print("lives of the library", tally.cycles);
    print("jobs", tally.jobs);
    print("groups", tally.groups);
    print("runs of schedules", tally.scheduledRuns);
    print("of these skipped by an overrun", tally.overruns);
    print("turns of mutexes", tally.lockTurns);
    print("requests", tally.cancels);
    print("plug-ins loaded and taken out", tally.plugIns);
    print("processes killed with a mutex", tally.processesKilled);
    print("workers killed", tally.workersKilled);
    std::printf("\n%-44s %10s %10s %10s %10s\n", "from one to the other, in ms", "count", "p50 <=", "p99 <=", "max");
    PrintTimes("Run, with its waits for a growth", tally.runCall);
    PrintTimes("Run to start, these waits included", tally.queueToStart);
    PrintTimes("launch of a thread to start", tally.launchToStart);
    for (std::size_t wait = 0; wait < kSoakWaits; ++wait) {
        PrintTimes((std::string("request to wake: ") + kSoakWaitNames[wait]).c_str(), tally.cancelToWake[wait]);
    }
}

bool PrintVerdict(const SoakTally& tally, const Resources& growth) {
    bool good = growth == Resources{};
    std::cout << "\ngrowth since the warm-up: " << growth << "\n";
    for (const std::string& failure : tally.Failures()) {
        std::cout << "WRONG: " << failure << "\n";
        good = false;
    }
    // What has not happened has not been soaked.
    for (const auto* count :
         {&tally.cycles, &tally.jobs, &tally.groups, &tally.scheduledRuns, &tally.overruns, &tally.lockTurns,
          &tally.cancels, &tally.plugIns, &tally.processesKilled, &tally.workersKilled}) {
        if (*count == 0) {
            std::cout << "WRONG: something of the load has not run\n";
            good = false;
        }
    }
    std::cout << (good ? "soak: passed" : "soak: FAILED") << std::endl;
    return good;
}

class Soak {
  public:
    explicit Soak(const Options& options) : m_options(options), m_watch(options.patience) {}

    bool Run() {
        SoakFor(m_options.warmUp, 1);
        std::cout << "warm after " << m_tally.cycles << " cycles" << std::endl;
        m_warm = WhenSettled(m_start);
        m_leak = m_options.leak;
        const auto left = m_options.time - m_options.warmUp;
        SoakFor(left, 5);
        Resources growth = Growth();
        if (growth != Resources{}) {
            // The library keeps some things once, such as the ledger of a module at an address where none has been.
            std::cout << "growth since the warm-up: " << growth << "; what is kept once does not come again"
                      << std::endl;
            m_warm = Resources::Now();
            SoakFor(left, 5);
            growth = Growth();
        }
        PrintCounts(m_tally, m_clock.Elapsed());
        return PrintVerdict(m_tally, growth);
    }

  private:
    void SoakFor(std::chrono::nanoseconds time, std::uint64_t leastCycles) {
        const Stopwatch clock;
        for (std::uint64_t cycle = 0; cycle < leastCycles || clock.Elapsed() < time; ++cycle) {
            RunCycle(m_tally, m_watch, m_run, m_tally.cycles);
            Leak(m_leak);
            if (m_warm && m_tally.cycles % 50 == 0) {
                std::cout << "cycle " << m_tally.cycles << ": " << WhenSettled(m_start) - *m_warm << std::endl;
            }
        }
    }

    Resources Growth() const {
        Resources growth;
        static_cast<void>(Eventually(
            [&] {
                growth = Resources::Now() - *m_warm;
                return growth == Resources{};
            },
            5s));
        return growth;
    }

    const Options m_options;
    const StressRun m_run{1};
    SoakTally m_tally;
    SoakWatch m_watch;
    const Resources m_start = Resources::Now();
    const Stopwatch m_clock;
    std::optional<Resources> m_warm;
    std::string m_leak;
};

}  // namespace

int main(int argc, char** argv) {
    SetEnvironmentVariableW(L"ZARVO_LOG", L"none");
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--hold") {
            return HoldMutexForEver(std::wstring(value.begin(), value.end()).c_str());
        }
        if (name == "--kill-workers") {
            return KillWorkers(std::atoi(value.c_str()));
        }
        const std::chrono::seconds seconds(std::atoi(value.c_str()));
        if (name == "--seconds") {
            options.time = seconds;
        } else if (name == "--warm-up") {
            options.warmUp = seconds;
        } else if (name == "--patience") {
            options.patience = seconds;
        } else if (name == "--leak") {
            options.leak = value;
        } else {
            std::cerr << "soak: unknown option " << name << "\n";
            return 2;
        }
    }
    g_losesAWakeUp = options.leak == "wake-up";
    const int code = Soak(options).Run() ? 0 : 1;
    std::fflush(stdout);
    if (options.leak == "thread") {
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));  // they sleep for ever
    }
    return code;
}
