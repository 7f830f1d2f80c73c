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
    if (bytes < 1024) {
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
    const auto blend = [&](double speed, std::uint64_t before, std::uint64_t now) {
        return speed + weight * ((static_cast<double>(now) - static_cast<double>(before)) / passed - speed);
    };
    m_filesPerSecond = blend(m_filesPerSecond, m_done.files, done.files);
    m_bytesPerSecond = blend(m_bytesPerSecond, m_done.bytes, done.bytes);
    m_done = done;
    m_seconds = seconds;
}

std::string Progress::Line(int columns) const {
    const double part = PartDone();
    std::string line = std::format("{:3.0f} %  {} of {} files  {:.0f} files/s  {}/s{}", std::floor(part * 100), m_done.files,
                                   m_total.files, m_filesPerSecond, ShownBytes(m_bytesPerSecond), TimeLeft());
    if (const int left = columns - static_cast<int>(line.size()) - 1; left >= kNarrowestBar) {
        line = Bar(left, part) + " " + line;
    }
    line.resize(std::min(line.size(), static_cast<std::size_t>(std::max(columns, 0))));
    return line;
}

double Progress::PartDone() const {
    // A file may have grown since it was listed.
    const double total = Work(m_total);
    return total > 0 ? std::min(Work(m_done) / total, 1.0) : 1;
}

std::string Progress::TimeLeft() const {
    const double part = PartDone();
    if (part <= 0) {
        return "";
    }
    const auto left = static_cast<std::uint64_t>(std::ceil(m_seconds * (1 - part) / part));
    const std::uint64_t minutes = left / 60;
    return minutes < 60 ? std::format("  {}:{:02} left", minutes, left % 60)
                        : std::format("  {}:{:02}:{:02} left", minutes / 60, minutes % 60, left % 60);
}

}  // namespace FileDigests
