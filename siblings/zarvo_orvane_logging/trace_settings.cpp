#include "zarvo_orvane_logging/trace_settings.h"

#include <cwchar>
#include <new>

#include "zarvo_orvane_logging/environment_settings.h"
#include "zarvo_orvane_logging/line_output.h"

namespace Orvane::Reports {

namespace {

void ChooseLimit(const std::wstring& value, TraceSettings& settings) {
    constexpr long kMost = 1L << 20U;  // a terabyte
    if (value.empty()) {
        return;
    }
    wchar_t* end = nullptr;
    const long megabytes = std::wcstol(value.c_str(), &end, 10);
    if (*end == L'\0' && megabytes > 0 && megabytes <= kMost) {
        settings.limit = static_cast<std::uint64_t>(megabytes) << 20U;
    } else {
        Explain(L"ZARVO_TRACE_LIMIT: \"" + value + L"\" is not a number of megabytes. It is ignored.");
    }
}

}  // namespace

TraceSettings ReadTraceSettings() noexcept {
    TraceSettings settings;
    try {
        settings.path = EnvironmentVariable(L"ZARVO_TRACE");
        if (!settings.path.empty()) {
            ChooseLimit(EnvironmentVariable(L"ZARVO_TRACE_LIMIT"), settings);
        }
    } catch (const std::bad_alloc&) {
        settings.path.clear();
        WriteToStandardError("ZARVO_TRACE: out of memory. It is ignored.\n");
    }
    return settings;
}

}  // namespace Orvane::Reports
