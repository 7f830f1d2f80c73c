// What the registry says about the scheduler. Read once per scheduler.
#pragma once

#include <cstdint>

namespace Orvane::Internal {

struct SchedulerConfiguration {
    // 1: an overrun also sets g_IntervalExceeded. Any other value only logs.
    std::uint32_t IntervalExceededAssertMode = 0;

    // Reads HKEY_LOCAL_MACHINE\Software\ZARVO\Orvane\SchedulerConfiguration\Default. What is missing, of another type
    // than REG_DWORD or not accessible keeps its default, silently.
    void Read() noexcept;
};

}  // namespace Orvane::Internal
