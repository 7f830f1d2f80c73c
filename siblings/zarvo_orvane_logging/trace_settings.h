// What the environment asks the trace to do: ZARVO_TRACE and ZARVO_TRACE_LIMIT.
#pragma once

#include <cstdint>
#include <string>

namespace Orvane::Reports {

struct TraceSettings {
    std::wstring path;                             // empty: no trace
    std::uint64_t limit = std::uint64_t{64} << 20U;  // bytes of one file
};

// Errors: none; never throws. A value that cannot be honoured is explained on standard error and left out.
TraceSettings ReadTraceSettings() noexcept;

}  // namespace Orvane::Reports
