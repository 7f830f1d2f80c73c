// What the soak has done and what it has measured.
//
// Threads: any.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Zarvo::Test {

// How long something took, each time.
class SoakTimes {
  public:
    void Add(std::chrono::nanoseconds time) {
        const auto value = static_cast<std::uint64_t>(std::max<std::int64_t>(time.count(), 0));
        ++m_counts[static_cast<std::size_t>(std::bit_width(value))];
        for (std::uint64_t max = m_max; max < value && !m_max.compare_exchange_weak(max, value);) {
        }
    }

    std::uint64_t Count() const {
        std::uint64_t count = 0;
        for (const auto& one : m_counts) {
            count += one;
        }
        return count;
    }

    std::chrono::nanoseconds Max() const { return std::chrono::nanoseconds(m_max.load()); }

    // At least that share of the times was at most this, rounded up to a power of two.
    std::chrono::nanoseconds Below(double share) const {
        const double wanted = share * static_cast<double>(Count());
        double seen = 0;
        for (std::size_t width = 0; width < m_counts.size(); ++width) {
            seen += static_cast<double>(m_counts[width]);
            if (seen >= wanted) {
                return std::min(Max(), std::chrono::nanoseconds(std::int64_t{1} << std::min<std::size_t>(width, 62)));
            }
        }
        return Max();
    }

  private:
    std::array<std::atomic<std::uint64_t>, 65> m_counts{};  // by the number of bits
    std::atomic<std::uint64_t> m_max = 0;
};

// The waits that a request must end.
enum class SoakWait {
    Sleep,
    Handle,
    Handles,
    FifoMutex,
    FifoMutexTimed,
    InterprocessMutex,
    Condition,
    Job,
    JobTimed,
    AnyJob,
    Group,
    Loop,
    Count
};

inline constexpr std::size_t kSoakWaits = static_cast<std::size_t>(SoakWait::Count);

inline constexpr std::array<const char*, kSoakWaits> kSoakWaitNames{"a sleep",
                                                                    "a wait for a handle",
                                                                    "a wait for several handles",
                                                                    "fifo_mutex::lock",
                                                                    "fifo_mutex::try_lock_for",
                                                                    "interprocess_mutex::lock",
                                                                    "a wait on a condition",
                                                                    "a wait for a job",
                                                                    "a timed wait for a job",
                                                                    "a wait for any of two jobs",
                                                                    "a wait for a group",
                                                                    "a parallel loop"};

struct SoakTally {
    std::atomic<std::uint64_t> cycles = 0;
    std::atomic<std::uint64_t> jobs = 0;
    std::atomic<std::uint64_t> groups = 0;
    std::atomic<std::uint64_t> scheduledRuns = 0;
    std::atomic<std::uint64_t> overruns = 0;
    std::atomic<std::uint64_t> lockTurns = 0;
    std::atomic<std::uint64_t> cancels = 0;
    std::atomic<std::uint64_t> plugIns = 0;
    std::atomic<std::uint64_t> processesKilled = 0;
    std::atomic<std::uint64_t> workersKilled = 0;
    SoakTimes runCall;  // which may wait for a growth
    SoakTimes queueToStart;
    SoakTimes launchToStart;  // of a thread of its own
    std::array<SoakTimes, kSoakWaits> cancelToWake;

    void Fail(std::string what) {
        const std::lock_guard lock(m_mutex);
        if (m_failures.size() < 20) {
            m_failures.push_back(std::move(what));
        }
    }
    std::vector<std::string> Failures() const {
        const std::lock_guard lock(m_mutex);
        return m_failures;
    }

  private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_failures;
};

}  // namespace Zarvo::Test
