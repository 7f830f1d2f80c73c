#include "bench/harness/question.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string_view>

#include "bench/harness/counter_clock.h"
#include "bench/harness/machine.h"
#include "bench/harness/table_reporter.h"

namespace Zarvo::Bench {

namespace {

// Removes this program's own options from the command line.
Effort TakeEffort(int& argc, char** argv) {
    Effort effort = Effort::kUsual;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--shortest") {
            effort = Effort::kShortest;
        } else if (option == "--all") {
            effort = Effort::kAll;
        } else {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    return effort;
}

// One round of one subject.
struct Measurement {
    Figures figures;
    double seconds = 0;
    std::string error;
};

Measurement Measure(const Subject& subject) {
    Measurement measurement;
    const auto start = CounterClock::now();
    try {
        measurement.figures = subject.measure();
    } catch (const std::exception& error) {
        measurement.error = error.what();
    }
    measurement.seconds = std::chrono::duration<double>(CounterClock::now() - start).count();
    return measurement;
}

// Measures a table when its first figure is asked for, and hands out the figures of each subject round by round.
//
// On purpose all subjects at once: Google Benchmark runs all repetitions of one benchmark before the next one, or all
// of them in random order. Either way a change in the machine's load can fall on one subject alone.
class RoundRobin {
  public:
    RoundRobin(const Table& table, std::size_t rounds) : m_table(table), m_rounds(rounds) {}

    const Measurement& Next(std::size_t subject) {
        if (m_measured.empty()) {
            MeasureAll();
        }
        return m_measured[subject][m_handedOut[subject]++];
    }

  private:
    void MeasureAll() {
        const std::size_t subjects = m_table.subjects.size();
        m_measured.resize(subjects);
        m_handedOut.resize(subjects);
        for (std::size_t round = 0; round < m_rounds; ++round) {
            for (std::size_t turn = 0; turn < subjects; ++turn) {
                const std::size_t subject = (round + turn) % subjects;
                m_measured[subject].push_back(Measure(m_table.subjects[subject]));
            }
        }
    }

    const Table& m_table;
    const std::size_t m_rounds;
    std::vector<std::vector<Measurement>> m_measured;  // by subject, then by round
    std::vector<std::size_t> m_handedOut;              // by subject
};

void HandOut(const Measurement& measurement, benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        state.SetIterationTime(measurement.seconds);
    }
    if (!measurement.error.empty()) {
        state.SkipWithError(measurement.error);
        return;
    }
    for (const auto& [heading, figure] : measurement.figures) {
        state.counters[heading] = figure;
    }
}

void Register(const Question& question, const Table& table, std::size_t rounds) {
    const auto measured = std::make_shared<RoundRobin>(table, rounds);
    for (std::size_t subject = 0; subject < table.subjects.size(); ++subject) {
        const std::string name = BenchmarkName(question, table, table.subjects[subject]);
        benchmark::RegisterBenchmark(
            name, [measured, subject](benchmark::State& state) { HandOut(measured->Next(subject), state); })
            ->Iterations(1)
            ->Repetitions(static_cast<int>(rounds))
            ->UseManualTime();
    }
}

}  // namespace

std::string BenchmarkName(const Question& question, const Table& table, const Subject& subject) {
    return question.name + "/" + table.name + "/" + subject.name;
}

int Answer(int argc, char** argv, const Question& question,
           const std::function<std::vector<Table>(Effort effort)>& makeTables) {
    const Effort effort = TakeEffort(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    for (const auto& [name, value] : DescribeMachine()) {
        benchmark::AddCustomContext(name, value);
    }
    benchmark::AddCustomContext("load", MachineLoad());
    const std::vector<Table> tables = makeTables(effort);
    for (const Table& table : tables) {
        Register(question, table, Rounds(effort));
    }
    TableReporter reporter(question, tables, Rounds(effort));
    const std::size_t run = benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return run != 0 && !reporter.HasErrors() ? 0 : 1;
}

}  // namespace Zarvo::Bench
