// What the tests of the platform share.
#pragma once

#include <string>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

inline constexpr DWORD kNow = 0;  // as a time-out

// A name that no other process uses.
inline std::wstring OwnName(const std::wstring& name) {
    return name + L' ' + std::to_wstring(GetCurrentProcessId());
}

}  // namespace Zarvo::Test
