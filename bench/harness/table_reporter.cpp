#include "bench/harness/table_reporter.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <utility>

#include "bench/harness/machine.h"

namespace Zarvo::Bench {

namespace {

using Rows = std::vector<std::vector<std::string>>;

// "12,345.6"
std::string Format(double value, int decimals) {
    char digits[64];
    std::snprintf(digits, sizeof(digits), "%.*f", decimals, value);
    std::string text = digits;
    const std::size_t end = text.find('.');
    const std::size_t first = text.front() == '-' ? 1 : 0;
    for (std::size_t at = end == std::string::npos ? text.size() : end; at > first + 3; at -= 3) {
        text.insert(at - 3, ",");
    }
    return text;
}

// The first column to the left, the others to the right.
std::string Align(const Rows& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = "    ";
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - row[i].size(), ' ');
            line += i == 0 ? row[i] + padding : "   " + padding + row[i];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace

TableReporter::TableReporter(const Question& question, const std::vector<Table>& tables, std::size_t rounds)
    : m_question(question), m_tables(tables), m_rounds(rounds) {}

bool TableReporter::ReportContext(const Context&) {
    auto& out = GetOutputStream();
    out << m_question.text << "\n";
    for (const auto& [name, value] : DescribeMachine()) {
        out << "  " << name << ": " << value << "\n";
    }
    if (const std::string load = MachineLoad(); !load.empty()) {
        out << "  load: " << load << "\n";
    }
    if (const std::string caveat = MachineCaveat(); !caveat.empty()) {
        out << "  " << caveat << "\n";
    }
    out << "  Medians of " << m_rounds << " rounds in turn; in brackets the lowest and highest round.\n" << std::flush;
    return true;
}

// Called once for each subject, with all its rounds.
void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration) {
            continue;
        }
        const std::string& name = run.run_name.function_name;
        if (run.skipped != benchmark::internal::NotSkipped) {
            m_hasErrors = true;
            GetErrorStream() << name << ": " << run.skip_message << "\n";
            break;  // once is enough
        }
        for (const auto& [heading, counter] : run.counters) {
            m_figures[name][heading].Add(counter.value);
        }
    }
    for (const Table& table : m_tables) {
        if (FiguresOf(table, table.subjects.back()) != nullptr) {
            PrintOnce(table);
        }
    }
}

void TableReporter::Finalize() {
    for (const Table& table : m_tables) {
        PrintOnce(table);
    }
    GetOutputStream() << "\n";
    for (const std::string& remark : m_question.remarks) {
        GetOutputStream() << "  " << remark << "\n";
    }
    GetOutputStream() << std::endl;
}

// Nothing for a table that nothing was measured of.
void TableReporter::PrintOnce(const Table& table) {
    const bool isMeasured = std::any_of(table.subjects.begin(), table.subjects.end(),
                                        [&](const Subject& subject) { return FiguresOf(table, subject) != nullptr; });
    if (isMeasured && m_printed.insert(&table).second) {
        GetOutputStream() << "\n  " << table.title << "\n";
        PrintFigures(table);
        PrintRatios(table);
        GetOutputStream() << std::flush;
    }
}

const std::map<std::string, Samples>* TableReporter::FiguresOf(const Table& table, const Subject& subject) const {
    const auto row = m_figures.find(BenchmarkName(m_question, table, subject));
    return row == m_figures.end() ? nullptr : &row->second;
}

const Samples* TableReporter::Find(const Table& table, const Subject& subject, const Column& column) const {
    const auto* const figures = FiguresOf(table, subject);
    if (figures == nullptr) {
        return nullptr;
    }
    const auto figure = figures->find(column.heading);
    return figure == figures->end() ? nullptr : &figure->second;
}

std::string TableReporter::Cell(const Table& table, const Subject& subject, const Column& column) const {
    const Samples* const samples = Find(table, subject, column);
    if (samples == nullptr) {
        return {};
    }
    std::string text = Format(samples->Median(), column.decimals);
    if (column.isCompared && m_rounds > 1) {
        text += " (" + Format(samples->Lowest(), column.decimals) + " - " +
                Format(samples->Highest(), column.decimals) + ")";
    }
    return text;
}

void TableReporter::PrintFigures(const Table& table) {
    Rows rows{{""}};
    for (const Column& column : table.columns) {
        rows.front().push_back(column.heading);
    }
    for (const Subject& subject : table.subjects) {
        rows.push_back({subject.name});
        for (const Column& column : table.columns) {
            rows.back().push_back(Cell(table, subject, column));
        }
    }
    GetOutputStream() << Align(rows);
}

std::string TableReporter::Ratio(const Table& table, const Subject& subject, const Subject& peer,
                                 const Column& column) const {
    const Samples* const own = Find(table, subject, column);
    const Samples* const others = Find(table, peer, column);
    if (own == nullptr || others == nullptr || others->Median() == 0) {
        return {};
    }
    return Format(own->Median() / others->Median(), 2);
}

void TableReporter::PrintRatios(const Table& table) {
    Rows rows{{"ratio"}};
    for (const Subject& peer : table.subjects) {
        if (peer.isPeer) {
            rows.front().push_back("of " + peer.name);
        }
    }
    for (const Subject& subject : table.subjects) {
        for (const Column& column : table.columns) {
            if (subject.isPeer || !column.isCompared || Find(table, subject, column) == nullptr) {
                continue;
            }
            rows.push_back({subject.name + ", " + column.heading});
            for (const Subject& peer : table.subjects) {
                if (peer.isPeer) {
                    rows.back().push_back(Ratio(table, subject, peer, column));
                }
            }
        }
    }
    if (rows.front().size() > 1 && rows.size() > 1) {
        GetOutputStream() << "\n" << Align(rows);
    }
}

}  // namespace Zarvo::Bench
