// Single measurements of one thing, and the order statistics of them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace Zarvo::Bench {

class Samples {
  public:
    void Add(double value) { m_values.push_back(value); }

    // The smallest value that at least `percent` of all samples do not exceed.
    // Errors: std::logic_error without samples.
    double Percentile(double percent) const {
        if (m_values.empty()) {
            throw std::logic_error("no samples");
        }
        std::vector<double> sorted = m_values;
        std::sort(sorted.begin(), sorted.end());
        const double rank = std::ceil(percent / 100.0 * static_cast<double>(sorted.size()));
        return sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
    }

    double Median() const { return Percentile(50); }
    double Lowest() const { return Percentile(0); }
    double Highest() const { return Percentile(100); }

  private:
    std::vector<double> m_values;
};

}  // namespace Zarvo::Bench
