// Functions of the platform that not every version of it has.
#pragma once

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

// The function `name` of a module that is loaded already; null if there is no such module or function.
template <typename Function>
Function FindFunction(const wchar_t* module, const char* name) noexcept {
    const HMODULE loaded = GetModuleHandleW(module);
    if (loaded == nullptr) {
        return nullptr;
    }
    // NOLINTNEXTLINE(bugprone-casting-through-void): the type that the look-up returns says nothing
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(loaded, name)));
}

}  // namespace Orvane::Internal
