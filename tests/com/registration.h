// The entry points of the library's module, and what they leave in the registry.
#pragma once

#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/com/scratch_registry.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

inline std::wstring PathOf(HMODULE module) {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

// Calls an entry point without arguments.
inline HRESULT CallEntryPoint(const char* name, HMODULE module = LibraryUnderTest()) {
    const auto entryPoint =
        reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (entryPoint == nullptr) {
        throw std::runtime_error(std::string("the module has no ") + name);
    }
    return entryPoint();
}

inline HRESULT Register(HMODULE module = LibraryUnderTest()) {
    return CallEntryPoint("DllRegisterServer", module);
}

inline HRESULT Unregister(HMODULE module = LibraryUnderTest()) {
    return CallEntryPoint("DllUnregisterServer", module);
}

// Adds a value, and with it the key that it is in and the keys above it.
inline void Add(RegistryDump& dump, const std::wstring& keyName, const std::wstring& name, const std::wstring& value) {
    const std::wstring key = InLowerCase(keyName);
    for (std::size_t end = key.find(L'\\'); end != std::wstring::npos; end = key.find(L'\\', end + 1)) {
        if (end > 4) {  // the root itself is not listed
            dump[key.substr(0, end)];
        }
    }
    dump[key];
    dump[key + L"@" + InLowerCase(name)] = value;
}

// The event source, which goes to the machine's part of the registry in every case.
inline void AddEventSource(RegistryDump& dump, const std::wstring& path) {
    const std::wstring key = L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\ZARVO Concurrency";
    Add(dump, key, L"EventMessageFile", L"type 2:" + path);
    Add(dump, key, L"TypesSupported", L"dword:7");
}

// What the script writes, below HKCR or the user's classes.
inline void AddScriptKeys(RegistryDump& dump, const std::wstring& classes, const std::wstring& path) {
    const std::wstring version = classes + L"\\TypeLib\\{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}\\1.0";
    Add(dump, version, L"", L"FutureLib 1.0 Type Library");
    Add(dump, version + L"\\0\\win32", L"", path);
    Add(dump, version + L"\\FLAGS", L"", L"0");
    Add(dump, version + L"\\HELPDIR", L"", L"");
}

// What the system writes for the type library.
inline void AddTypeLibraryKeys(RegistryDump& dump, const std::wstring& classes, const std::wstring& path) {
    Add(dump, classes + L"\\TypeLib\\{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}\\1.0\\409\\win64", L"", path + L"\\3");
    const std::wstring interfaceKey = classes + L"\\Interface\\{03D3BEE8-7768-4137-A1A5-FD9C9095A237}";
    Add(dump, interfaceKey, L"", L"IFuture");
    Add(dump, interfaceKey + L"\\ProxyStubClsid", L"", L"{00020424-0000-0000-C000-000000000046}");
    Add(dump, interfaceKey + L"\\ProxyStubClsid32", L"", L"{00020424-0000-0000-C000-000000000046}");
    Add(dump, interfaceKey + L"\\TypeLib", L"", L"{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}");
    Add(dump, interfaceKey + L"\\TypeLib", L"Version", L"1.0");
}

// What a registration for the machine leaves.
inline RegistryDump RegisteredAt(const std::wstring& path) {
    RegistryDump dump;
    AddEventSource(dump, path);
    AddScriptKeys(dump, L"HKCR", path);
    AddTypeLibraryKeys(dump, L"HKCR", path);
    return dump;
}

}  // namespace Zarvo::Test
