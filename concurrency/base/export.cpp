#include "concurrency/base/export.h"

#include <cstdio>
#include <cstdlib>

namespace Orvane::Internal {

namespace {

constexpr auto kText =
    "ZarvoConcurrency.dll was built with another compiler, C++ runtime or version than the program that loads it "
    "(layout %016llx instead of %016llx). Ship the DLLs of the package that it was compiled with.\n";

}  // namespace

bool CheckLayout(std::uint64_t layout) noexcept {
    if (layout != kLayout) {
        std::fprintf(stderr, kText, static_cast<unsigned long long>(kLayout), static_cast<unsigned long long>(layout));
        std::fflush(stderr);
        std::_Exit(3);
    }
    return true;
}

}  // namespace Orvane::Internal
