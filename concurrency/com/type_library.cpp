#include "concurrency/com/type_library.h"

#include <oleauto.h>

#include <string>

#include "concurrency/base/module_function.h"
#include "concurrency/com/com_pointer.h"
#include "concurrency/com/module_path.h"
#include "concurrency/com/resource_ids.h"

namespace Orvane::Internal {

namespace {

constexpr GUID kLibraryId{0x55EC072B, 0x2104, 0x4EBD, {0xA9, 0x1F, 0x41, 0xFA, 0x01, 0xB7, 0xF6, 0xE6}};
constexpr WORD kMajor = 1;
constexpr WORD kMinor = 0;
constexpr LCID kLocale = 0x0409;

// The calls for one user are looked up: not every version of the platform has them, nor every toolchain's headers.
using RegisterForUser = HRESULT(STDAPICALLTYPE*)(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
using UnregisterForUser = HRESULT(STDAPICALLTYPE*)(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND kind);

template <typename Function>
Function FindInOleAut(const char* name) noexcept {
    return FindFunction<Function>(L"OLEAUT32.DLL", name);
}

}  // namespace

HRESULT RegisterTypeLibrary(HINSTANCE module, RegistrationScope scope) {
    // The resource's number belongs to the path: loaders look for number 1 otherwise.
    std::wstring path = ModulePath(module) + L"\\" + std::to_wstring(ZARVO_TYPE_LIBRARY);
    ITypeLib* loaded = nullptr;
    if (const HRESULT result = LoadTypeLibEx(path.c_str(), REGKIND_NONE, &loaded); FAILED(result)) {
        return result;
    }
    const ComPointer<ITypeLib> library(loaded);
    wchar_t noHelp[] = L"";
    if (scope == RegistrationScope::kMachine) {
        return RegisterTypeLib(library.get(), path.data(), noHelp);
    }
    const auto registerForUser = FindInOleAut<RegisterForUser>("RegisterTypeLibForUser");
    return registerForUser != nullptr ? registerForUser(library.get(), path.data(), noHelp) : TYPE_E_REGISTRYACCESS;
}

HRESULT UnregisterTypeLibrary(RegistrationScope scope) {
    if (scope == RegistrationScope::kMachine) {
        return UnRegisterTypeLib(kLibraryId, kMajor, kMinor, kLocale, SYS_WIN64);
    }
    const auto unregisterForUser = FindInOleAut<UnregisterForUser>("UnRegisterTypeLibForUser");
    return unregisterForUser != nullptr ? unregisterForUser(kLibraryId, kMajor, kMinor, kLocale, SYS_WIN64)
                                        : TYPE_E_REGISTRYACCESS;
}

}  // namespace Orvane::Internal
