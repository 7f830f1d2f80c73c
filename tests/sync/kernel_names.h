// Names of kernel objects that no other process uses.
#pragma once

#include <string>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

// Without a backslash. The same for each call in this process.
inline std::wstring UniqueName(const std::wstring& purpose) {
    return L"sync_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" + purpose;
}

}  // namespace Zarvo::Test
