#include "zarvo_orvane_logging/log.h"

#include <cstddef>
#include <cwchar>
#include <new>
#include <string>

#include <windows.h>

namespace {

constexpr DWORD kErrorsWarningsAndInformation = 7;

bool IsSourceName(const wchar_t* name) noexcept {
    return name != nullptr && *name != L'\0' && std::wcschr(name, L'\\') == nullptr;
}

std::wstring SourceKey(const wchar_t* name) {
    return std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\") + name;
}

// Leaves `path` empty on failure. Paths may be far longer than MAX_PATH.
LSTATUS ReadModulePath(HINSTANCE module, std::wstring& path) {
    for (std::size_t capacity = MAX_PATH;; capacity *= 2) {
        path.resize(capacity);
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(capacity));
        if (length < capacity) {
            path.resize(length);
            return length == 0 ? static_cast<LSTATUS>(GetLastError()) : ERROR_SUCCESS;
        }
    }
}

LSTATUS WriteValues(HKEY key, const std::wstring& modulePath) noexcept {
    const auto bytes = static_cast<DWORD>((modulePath.size() + 1) * sizeof(wchar_t));
    const LSTATUS status = RegSetValueExW(key, L"EventMessageFile", 0, REG_EXPAND_SZ,
                                          reinterpret_cast<const BYTE*>(modulePath.c_str()), bytes);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    return RegSetValueExW(key, L"TypesSupported", 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&kErrorsWarningsAndInformation),
                          sizeof(kErrorsWarningsAndInformation));
}

LSTATUS WriteSource(const wchar_t* name, HINSTANCE module) {
    std::wstring modulePath;
    if (const LSTATUS status = ReadModulePath(module, modulePath); status != ERROR_SUCCESS) {
        return status;
    }
    const std::wstring keyName = SourceKey(name);
    HKEY key = nullptr;
    DWORD disposition = 0;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyName.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_SET_VALUE, nullptr, &key, &disposition);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    status = WriteValues(key, modulePath);
    RegCloseKey(key);
    if (status != ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyName.c_str());
    }
    return status;
}

}  // namespace

long Log::RegisterEventSourceW(const wchar_t* name, HINSTANCE__* module) noexcept {
    if (!IsSourceName(name)) {
        return E_INVALIDARG;
    }
    try {
        return HRESULT_FROM_WIN32(static_cast<unsigned long>(WriteSource(name, module)));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

long Log::UnregisterEventSource(const wchar_t* name) noexcept {
    if (!IsSourceName(name)) {
        return E_INVALIDARG;
    }
    try {
        const LSTATUS status = RegDeleteKeyW(HKEY_LOCAL_MACHINE, SourceKey(name).c_str());
        return HRESULT_FROM_WIN32(static_cast<unsigned long>(status));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
