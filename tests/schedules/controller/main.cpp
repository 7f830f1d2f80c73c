// schedules [FILTER] [--list] [--seed SEED] [--most N] [--seconds N] [--pct N] [--replay TURNS] [--trace N] [--bound N] [--jobs N]
//           [--whole] [--traces]
//
// Runs every schedule of each scenario with at most two preemptions, as far as it gets, in a process of its own; then schedules by
// priorities. With --whole also those that are like one before; --traces counts those that are not: the same number with and without
// --whole. Prints a line for each scenario, and for one that fails the turns that repeat it, with its trace.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unordered_set>

#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/schedules/controller/all_schedules.h"
#include "tests/schedules/controller/report.h"
#include "tests/schedules/controller/scenario.h"
#include "tests/schedules/controller/strategies.h"
#include "tests/schedules/controller/uses.h"

namespace Schedules {

std::vector<Scenario>& AllScenarios() {
    static std::vector<Scenario> scenarios;
    return scenarios;
}

namespace {

using Clock = std::chrono::steady_clock;

// Schedules by priorities that come before all others: they show which objects are shared.
constexpr std::uint64_t kFirstByPriority = 200;

struct Options {
    std::string filter;
    std::string turns;
    std::uint64_t seed = 1;
    std::uint64_t most = 1'000'000'000;  // schedules of one scenario by its bound
    std::uint64_t byPriority = kFirstByPriority;
    double seconds = 5;  // for one scenario
    int bound = 2;
    int jobs = 0;
    bool isReplay = false;
    bool isAlwaysTraced = false;
    bool isList = false;
    bool isWhole = false;
    bool countsTraces = false;
};

Options g_options;
Clock::time_point g_end;
std::uint64_t g_tracedSchedule = UINT64_MAX;
std::unordered_set<std::uint64_t> g_traces;

void Seen(const Facts& facts) {
    Report& report = *g_report;
    ++report.schedules;
    report.mostPoints = std::max(report.mostPoints, facts.points);
    report.mostThreads = std::max(report.mostThreads, facts.threads);
    report.mostDecisions = std::max(report.mostDecisions, report.decisions);
}

Facts RunOne(const Scenario& scenario, RecordedStrategy& strategy) {
    strategy.BeginSchedule();
    if (g_report->schedules == g_tracedSchedule) {
        TraceFromNowOn();
    }
    const Facts facts = RunSchedule(scenario.body, scenario.terms, strategy);
    Seen(facts);
    return facts;
}

// Those from the first to the last of the seed; as far as the time suffices.
void RunByPriority(const Scenario& scenario, std::uint64_t first, std::uint64_t last, Clock::time_point end) {
    for (std::uint64_t i = first; i < last && Clock::now() < end; ++i) {
        g_report->seed = g_options.seed * 1'000'003 + i;
        PriorityStrategy strategy(g_report->seed, 3, std::max(20U, g_report->mostDecisions));
        RunOne(scenario, strategy);
        ++g_report->sampled;
    }
    g_report->seed = 0;
}

// Returns whether all were run. Begins anew whenever an object turns out to be shared: schedules before it had too few points.
bool RunAll(const Scenario& scenario, int bound) {
    for (;;) {
        AllSchedules strategy(bound, g_options.isWhole || scenario.terms.delays);
        bool sharesMore = false;
        g_traces.clear();
        for (std::uint64_t i = 0; !sharesMore; ++i) {
            if (i == g_options.most || Clock::now() >= g_end) {
                return false;
            }
            sharesMore = RunOne(scenario, strategy).sharesMore;
            if (g_options.countsTraces && !strategy.IsRepeated()) {
                g_traces.insert(TraceOfUses());
                g_report->traces = g_traces.size();
            }
            if (strategy.HasDiverged() && !sharesMore) {
                ++g_report->diverged;
                Fail("a schedule cannot be repeated: the scenario depends on more than its threads' order");
            }
            if (!sharesMore && !strategy.Next()) {
                return true;
            }
        }
        ++g_report->restarts;
    }
}

void Crash(int signal) {
    AddToReport("%s", strsignal(signal));
    g_report->hasFailed = true;
    PrintTrace();
    _exit(2);
}

void WatchForCrashes() {
    static char stack[65536];
    const stack_t alternate{stack, 0, sizeof(stack)};
    sigaltstack(&alternate, nullptr);
    for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
        struct sigaction action{};
        action.sa_handler = &Crash;
        action.sa_flags = SA_ONSTACK | SA_RESETHAND;
        sigaction(signal, &action, nullptr);
    }
}

void Search(const Scenario& scenario) {
    // What is made once in a process is made outside of the counted schedules.
    AllSchedules first(0);
    for (int i = 0; i < 2; ++i) {
        first.BeginSchedule();
        RunSchedule(scenario.body, scenario.terms, first);
    }
    RunByPriority(scenario, 0, kFirstByPriority, g_end);
    for (int bound = 0; bound <= g_options.bound && RunAll(scenario, bound); ++bound) {
        g_report->completeBound = bound;
    }
    RunByPriority(scenario, kFirstByPriority, g_options.byPriority, Clock::time_point::max());
}

// In a process of its own, on one processor.
void Run(const Scenario& scenario, int processor) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<std::size_t>(processor), &processors);
    sched_setaffinity(0, sizeof(processors), &processors);
    WatchForCrashes();
    if (g_options.countsTraces) {
        KeepTrace();
    }
    g_end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(g_options.seconds));
    if (g_options.isReplay) {
        AllSchedules first(0);
        for (int i = 0; i < 2; ++i) {
            first.BeginSchedule();
            RunSchedule(scenario.body, scenario.terms, first);
        }
        Replay replay(g_options.turns);
        TraceFromNowOn();
        TakeAllAsShared();
        RunOne(scenario, replay);
        if (g_options.isAlwaysTraced) {
            PrintTrace();
        }
    } else {
        Search(scenario);
    }
    std::fflush(nullptr);
    _exit(0);
}

struct Running {
    const Scenario* scenario;
    Report* report;
    Clock::time_point begin;
    int processor;
};

Report* NewReport() {
    void* const memory = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    return new (memory) Report;
}

std::uint64_t g_schedules = 0;
int g_failures = 0;

std::vector<int> Processors() {
    cpu_set_t set;
    sched_getaffinity(0, sizeof(set), &set);
    std::vector<int> processors;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(static_cast<std::size_t>(i), &set)) {
            processors.push_back(i);
        }
    }
    if (g_options.jobs > 0) {
        processors.resize(std::min(processors.size(), static_cast<std::size_t>(g_options.jobs)));
    }
    return processors;
}

// In a process of its own: the schedule with these turns; or without turns the whole search again, with a trace of its schedule
// number `number`. Returns whether it failed.
bool RunOnceMore(const Scenario& scenario, const std::string* turns, std::uint64_t number) {
    std::fflush(stdout);
    Report* const report = NewReport();
    const pid_t child = fork();
    if (child == 0) {
        g_report = report;
        alarm(300);
        g_options.seconds = 3600;
        if (turns != nullptr) {
            g_options.isReplay = true;
            g_options.turns = *turns;
        } else {
            g_tracedSchedule = number;
        }
        Run(scenario, Processors().front());
    }
    waitpid(child, nullptr, 0);
    const bool hasFailed = report->hasFailed;
    munmap(report, sizeof(Report));
    return hasFailed;
}

// A few objects stay in the process from one schedule to the next. So the turns alone may not say everything.
void Replayed(const Scenario& scenario, const std::string& turns, std::uint64_t number) {
    std::printf("  again: ./dev schedules %s --replay '%s'\n", scenario.name, turns.c_str());
    if (!RunOnceMore(scenario, &turns, 0) && !RunOnceMore(scenario, nullptr, number)) {
        std::printf("  the schedule did not fail once more\n");
    }
}

void Ended(const Running& running, int status) {
    Report& report = *running.report;
    g_report = &report;
    const double seconds = std::chrono::duration<double>(Clock::now() - running.begin).count();
    const bool isRed = status != 0;
    g_schedules += report.schedules;
    char how[64];
    std::snprintf(how, sizeof(how), report.completeBound >= g_options.bound ? "complete at %d" : "cut, complete at %d",
                  report.completeBound);
    std::printf("%-8s %-52s %9llu schedules, %2u threads, %4u points, %s (%.1f s)\n", isRed ? "FAILED" : "ok",
                running.scenario->name, static_cast<unsigned long long>(report.schedules), report.mostThreads,
                report.mostPoints, how, seconds);
    if (g_options.countsTraces) {
        std::printf("         %llu traces\n", static_cast<unsigned long long>(report.traces));
    }
    if (isRed) {
        ++g_failures;
        if (!report.hasFailed) {
            AddToReport("the process ended with status %d, or hung", status);
        }
        std::printf("  %s\n", report.text);
        if (report.seed != 0) {
            std::printf("  by priorities, seed %llu\n", static_cast<unsigned long long>(report.seed));
        }
        Replayed(*running.scenario, TurnsOfReport(), report.schedules);
    }
    std::fflush(stdout);
    munmap(running.report, sizeof(Report));
}

void RunScenarios(const std::vector<Scenario>& scenarios) {
    std::vector<int> idle = Processors();
    std::map<pid_t, Running> running;
    for (std::size_t next = 0; next < scenarios.size() || !running.empty();) {
        if (next < scenarios.size() && !idle.empty()) {
            const Scenario& scenario = scenarios[next++];
            const Running started{&scenario, NewReport(), Clock::now(), idle.back()};
            idle.pop_back();
            std::fflush(stdout);
            const pid_t child = fork();
            if (child == 0) {
                g_report = started.report;
                // A thread that never comes back to the controller.
                alarm(static_cast<unsigned>(g_options.seconds * 2) + 60 +
                      static_cast<unsigned>(g_options.byPriority / 50));
                Run(scenario, started.processor);
            }
            running.emplace(child, started);
            continue;
        }
        int status = 0;
        const pid_t child = wait(&status);
        const auto entry = running.find(child);
        if (entry != running.end()) {
            Ended(entry->second, status);
            idle.push_back(entry->second.processor);
            running.erase(entry);
        }
    }
}

void Read(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        const auto value = [&] {
            if (++i == count) {
                std::fprintf(stderr, "schedules: %s needs a value\n", argument.c_str());
                std::exit(2);
            }
            return std::string(arguments[i]);
        };
        if (argument == "--list") {
            g_options.isList = true;
        } else if (argument == "--seed") {
            g_options.seed = std::stoull(value());
        } else if (argument == "--most") {
            g_options.most = std::stoull(value());
        } else if (argument == "--seconds") {
            g_options.seconds = std::stod(value());
        } else if (argument == "--pct") {
            g_options.byPriority = std::stoull(value());
        } else if (argument == "--bound") {
            g_options.bound = std::stoi(value());
        } else if (argument == "--jobs") {
            g_options.jobs = std::stoi(value());
        } else if (argument == "--trace") {
            g_tracedSchedule = std::stoull(value());
        } else if (argument == "--whole") {
            g_options.isWhole = true;
        } else if (argument == "--traces") {
            g_options.countsTraces = true;
        } else if (argument == "--replay") {
            g_options.isReplay = true;
            g_options.turns = value();
        } else if (argument.starts_with("--")) {
            std::fprintf(stderr, "schedules: knows no %s\n", argument.c_str());
            std::exit(2);
        } else {
            g_options.filter = argument;
        }
    }
}

}  // namespace

}  // namespace Schedules

int main(int count, char** arguments) {
    using namespace Schedules;
    Read(count, arguments);
    std::vector<Scenario> chosen;
    for (const Scenario& scenario : AllScenarios()) {
        if (std::string(scenario.name).find(g_options.filter) != std::string::npos) {
            chosen.push_back(scenario);
        }
    }
    if (chosen.empty()) {
        std::fprintf(stderr, "schedules: no scenario is called like '%s'\n", g_options.filter.c_str());
        return 2;
    }
    std::ranges::sort(chosen, {}, &Scenario::name);
    if (g_options.isList) {
        for (const Scenario& scenario : chosen) {
            std::printf("%s\n", scenario.name);
        }
        return 0;
    }
    if (g_options.isReplay) {
        g_options.isAlwaysTraced = true;
        return RunOnceMore(chosen.front(), &g_options.turns, 0) ? 1 : 0;
    }
    const auto begin = Clock::now();
    RunScenarios(chosen);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    std::printf("\n%zu scenarios, %d failed; %llu schedules, %.0f a second, seed %llu\n", chosen.size(), g_failures,
                static_cast<unsigned long long>(g_schedules), static_cast<double>(g_schedules) / seconds,
                static_cast<unsigned long long>(g_options.seed));
    return g_failures != 0 ? 1 : 0;
}
