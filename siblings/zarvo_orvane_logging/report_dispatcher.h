// Decides which records are wanted and hands them to the one sink in use.
#pragma once

#include <atomic>
#include <cstdarg>
#include <limits>
#include <string_view>

#include "zarvo_orvane_logging/line_batches.h"
#include "zarvo_orvane_logging/line_output.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/process_lock.h"

namespace Orvane::Reports {

struct PendingReport;

// Threads: every member may be called from any thread.
// Lifetime: made at compile time and never destroyed, so that the first and the last code of a process can report.
class ReportDispatcher final : private LineBatches::Output {
  public:
    constexpr ReportDispatcher() = default;
    ReportDispatcher(const ReportDispatcher&) = delete;
    ReportDispatcher& operator=(const ReportDispatcher&) = delete;

    // False for a record that nobody would see. May be true for one too many until the environment has been read.
    [[nodiscard]] bool Wants(int severity) const noexcept {
        return severity >= m_lowestWanted.load(std::memory_order_relaxed);
    }

    void Dispatch(int severity, int kind, const wchar_t* category, const wchar_t* format, va_list arguments) noexcept;

    void SetSink(OrvaneLogging::Sink sink, LineFile file) noexcept;
    void SetMinimumLevel(int severity) noexcept;

  private:
    void Write(std::string_view lines) noexcept override;
    void Deliver(const PendingReport& report, va_list arguments) noexcept;
    void ReadEnvironmentOnce() noexcept;
    void UpdateLowestWanted() noexcept;

    // Derived from the fields below. Starts by wanting everything: the first record has the environment read.
    std::atomic<int> m_lowestWanted = std::numeric_limits<int>::min();
    std::atomic<bool> m_environmentRead = false;

    ProcessLock m_lock;  // protects the rest, and the order of the records
    LineBatches m_batches;
    OrvaneLogging::Sink m_sink = OrvaneLogging::Sink::None;
    LineFile m_file;  // when open, it is the sink; it and m_sink stay as they are while m_batches writes
    int m_minimumLevel = std::numeric_limits<int>::min();
};

}  // namespace Orvane::Reports
