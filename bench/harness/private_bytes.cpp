#include "bench/harness/private_bytes.h"

#include <algorithm>
#include <system_error>

#include "concurrency/base/windows_api.h"

#include <psapi.h>

namespace Zarvo::Bench {

std::size_t PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    auto* const common = reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters);
    if (GetProcessMemoryInfo(GetCurrentProcess(), common, sizeof(counters)) == FALSE) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "GetProcessMemoryInfo");
    }
    // The same amount. Wine fills in only the one, old systems only the other.
    return std::max<std::size_t>(counters.PagefileUsage, counters.PrivateUsage);
}

}  // namespace Zarvo::Bench
