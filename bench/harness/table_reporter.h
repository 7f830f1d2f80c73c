// Prints what was measured as tables of medians and ratios, each table as soon as it is complete.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/harness/table.h"

namespace Zarvo::Bench {

class TableReporter : public benchmark::BenchmarkReporter {
  public:
    // Lifetime: `question` and `tables` must outlive the reporter.
    TableReporter(const Question& question, const std::vector<Table>& tables, std::size_t rounds);

    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    bool HasErrors() const { return m_hasErrors; }

  private:
    const std::map<std::string, Samples>* FiguresOf(const Table& table, const Subject& subject) const;
    void PrintOnce(const Table& table);
    const Samples* Find(const Table& table, const Subject& subject, const Column& column) const;
    std::string Cell(const Table& table, const Subject& subject, const Column& column) const;
    std::string Ratio(const Table& table, const Subject& subject, const Subject& peer, const Column& column) const;
    void PrintFigures(const Table& table);
    void PrintRatios(const Table& table);

    const Question& m_question;
    const std::vector<Table>& m_tables;
    const std::size_t m_rounds;
    std::map<std::string, std::map<std::string, Samples>> m_figures;  // by benchmark name, then by heading
    std::set<const Table*> m_printed;
    bool m_hasErrors = false;
};

}  // namespace Zarvo::Bench
