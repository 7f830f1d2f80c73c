#include "examples/file_digests/progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <format>
#include <string_view>

namespace FileDigests {

namespace {

// The speeds shown are those of about the last so many seconds.
constexpr double kMemory = 3;

// Opening a file costs about as much as digesting so many bytes: percent and time left count both.
constexpr double kBytesPerFile = 128 * 1024;

// In seconds: four days. What would take longer cannot be foretold.
constexpr double kLongestTime = 4 * 24 * 3600;

constexpr int kWidestBar = 40;
constexpr int kNarrowestBar = 10;

double Work(const Progress::Amount& amount) {
    return static_cast<double>(amount.bytes) + kBytesPerFile * static_cast<double>(amount.files);
}

std::string Bar(int width, double part) {
    const int inside = std::min(width, kWidestBar) - 2;
    const auto full = static_cast<int>(part * inside);
    return "[" + std::string(static_cast<std::size_t>(full), '#') +
           std::string(static_cast<std::size_t>(inside - full), '.') + "]";
}

}  // namespace

std::string ShownBytes(double bytes) {
    if (bytes < 1023.5) {
        return std::format("{:.0f} bytes", bytes);
    }
    constexpr std::array<std::string_view, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    bytes /= 1024;
    // From 1023.95 on, one decimal would show 1024.0.
    for (; bytes >= 1023.95 && unit + 1 < kUnits.size(); ++unit) {
        bytes /= 1024;
    }
    return std::format("{:.1f} {}", bytes, kUnits[unit]);
}

void Progress::Update(Amount done, double seconds) {
    const double passed = seconds - m_seconds;
    if (passed <= 0) {
        return;
    }
    // In the first seconds there is less to remember: then everything since the start counts alike.
    const double weight = std::max(1 - std::exp(-passed / kMemory), passed / seconds);
    const auto learn = [&](double& speed, double before, double now) {
        speed += weight * ((now - before) / passed - speed);
    };
    learn(m_filesPerSecond, static_cast<double>(m_done.files), static_cast<double>(done.files));
    learn(m_bytesPerSecond, static_cast<double>(m_done.bytes), static_cast<double>(done.bytes));
    learn(m_workPerSecond, Work(m_done), Work(done));
    m_done = done;
    m_seconds = seconds;
}

std::string Progress::Line(int columns) const {
    // A file may have grown since it was listed.
    const double total = Work(m_total);
    const double part = total > 0 ? std::min(Work(m_done) / total, 1.0) : 1;
    // Every number has its place: the line stays calm while they change.
    const std::string files = std::to_string(m_total.files);
    std::string line = std::format("{:3.0f} %  {:{}} of {} files  {:5.0f} files/s  {:>10}/s  {:>5} left",
                                   std::floor(part * 100), m_done.files, files.size(), files, m_filesPerSecond,
                                   ShownBytes(m_bytesPerSecond), TimeLeft());
    if (const int left = columns - static_cast<int>(line.size()) - 1; left >= kNarrowestBar) {
        line = Bar(left, part) + " " + line;
    }
    line.resize(std::min(line.size(), static_cast<std::size_t>(std::max(columns, 0))));
    return line;
}

// "?" as long as nothing moves.
std::string Progress::TimeLeft() const {
    const double work = std::max(Work(m_total) - Work(m_done), 0.0);
    const double seconds = std::ceil(work / m_workPerSecond);
    if (!(seconds < kLongestTime)) {
        return "?";
    }
    const auto left = static_cast<std::uint64_t>(seconds);
    const std::uint64_t minutes = left / 60;
    return minutes < 60 ? std::format("{}:{:02}", minutes, left % 60)
                        : std::format("{}:{:02}:{:02}", minutes / 60, minutes % 60, left % 60);
}

}  // namespace FileDigests
