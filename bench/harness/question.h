// The main function of a program that answers one question with tables.
//
//     int main(int argc, char** argv) {
//         const Question question{"queue_throughput", "What does an empty task cost?", {"remark"}};
//         return Answer(argc, argv, question, [](Effort effort) { return ...; });
//     }
//
// Options: --shortest or --all (effort.h), and those of Google Benchmark: --benchmark_filter=REGEX measures only the
// tables that it matches a subject of, as question/table/subject; --benchmark_out=FILE also writes every round's figures as JSON.
//
// Method: the subjects of a table are measured in turn, round after round, each round beginning with another one, so
// that whatever else the machine does falls on all of them alike. Every figure is the median of the rounds.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/harness/effort.h"
#include "bench/harness/table.h"

namespace Zarvo::Bench {

struct Question {
    std::string name;  // of the program's source
    std::string text;
    std::vector<std::string> remarks;  // lines printed below the tables: what a reader must know
};

// What Google Benchmark calls a subject: question/table/subject.
std::string BenchmarkName(const Question& question, const Table& table, const Subject& subject);

// Measures and prints. Returns the exit code: not 0 if a measurement failed or nothing was measured.
int Answer(int argc, char** argv, const Question& question,
           const std::function<std::vector<Table>(Effort effort)>& makeTables);

}  // namespace Zarvo::Bench
