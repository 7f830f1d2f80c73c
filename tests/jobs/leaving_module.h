// A module that starts jobs, as the tests load it and take it out.
//
// Threads: one.
// Errors: std::runtime_error if the module or a function of it is not there.
// Lifetime: the module stays loaded until FreeLibrary(), also when the object goes.
#pragma once

#include <stdexcept>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

class LeavingModule {
  public:
    static constexpr const wchar_t* kName = L"leaving_module_test_dll.dll";

    LeavingModule() : m_module(LoadLibraryW(kName)) {
        if (m_module == nullptr) {
            throw std::runtime_error("the module cannot be loaded");
        }
    }

    // Calls a function of the module, which takes and returns plain values.
    template <typename... Arguments>
    int Call(const char* name, Arguments... arguments) const {
        const auto address = reinterpret_cast<void*>(GetProcAddress(m_module, name));
        if (address == nullptr) {
            throw std::runtime_error(name);
        }
        return reinterpret_cast<int (*)(Arguments...)>(address)(arguments...);
    }

    void Free() const { FreeLibrary(m_module); }

    static bool IsLoaded() { return GetModuleHandleW(kName) != nullptr; }

  private:
    HMODULE m_module;
};

}  // namespace Zarvo::Test
