// A comparison: subjects, measured in turn, and what is compared between them.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Zarvo::Bench {

// What one measurement gave: a figure for each column, by the column's heading. A subject may leave columns out.
using Figures = std::map<std::string, double>;

struct Subject {
    std::string name;
    std::function<Figures()> measure;

    // What everything else is compared with: other columns of the table give the ratios to it.
    bool isPeer = false;
};

struct Column {
    std::string heading;  // with the unit
    int decimals = 0;

    // Whether it is shown with its spread, and in ratio to the peers.
    bool isCompared = false;
};

struct Table {
    std::string name;   // for --benchmark_filter
    std::string title;  // what was done, how often
    std::vector<Column> columns;
    std::vector<Subject> subjects;
};

}  // namespace Zarvo::Bench
