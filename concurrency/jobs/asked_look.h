// Says in the log which jobs were asked to leave and have not left, and what they wait in.
//
// Each job is reported some time after it was asked, and once more. Which of them are due follows from the time of the last look
// alone, so that jobs keep no account of it.
//
// Threads: one. ReportLoss() any.
#pragma once

#include <cstdint>

namespace Orvane::Internal {

class AskedLook {
  public:
    // Milliseconds after the request.
    static constexpr std::uint64_t kFirst = 5'000;
    static constexpr std::uint64_t kSecond = 30'000;

    // Reports those that have become due since the last look. Returns when the next one will be, the greatest number if there is
    // none. Without memory it says so once, and looks again soon.
    //
    // Units: ticks of CoarseClock.
    std::uint64_t ReportDue(std::uint64_t now) noexcept;

    // Jobs cannot be watched. Only the first one is reported.
    static void ReportLoss(const char* why) noexcept;

  private:
    std::uint64_t Look(std::uint64_t now);

    std::uint64_t m_last = 0;
};

}  // namespace Orvane::Internal
