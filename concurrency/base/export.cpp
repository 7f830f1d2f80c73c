#include "concurrency/base/export.h"

#include <cstdio>

#include "concurrency/base/last_words.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

bool CheckLayout(std::uint64_t layout) noexcept {
    if (layout != kLayout) {
        char reason[256];
        std::snprintf(
            reason, sizeof(reason),
            "the program was compiled with another compiler, C++ runtime or version than ZarvoConcurrency.dll "
            "(layout %016llx instead of %016llx): ship the DLLs of the package that it was compiled with",
            static_cast<unsigned long long>(layout), static_cast<unsigned long long>(kLayout));
        LastWords words(reason);
        words.AddThread(::GetCurrentThreadId());
        words.EndProcess();
    }
    return true;
}

}  // namespace Orvane::Internal
