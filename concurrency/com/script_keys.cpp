#include "concurrency/com/script_keys.h"

#include <string>

#include "concurrency/com/module_path.h"

namespace Orvane::Internal {

namespace {

// As in concurrency.rgs.
constexpr wchar_t kLibraryKey[] = L"TypeLib\\{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}";
constexpr wchar_t kVersion[] = L"\\1.0";

std::wstring LibraryKey(const ClassesRoot& root) {
    return std::wstring(root.path) + kLibraryKey;
}

// The first failure among the steps so far.
class FirstFailure {
  public:
    void Note(LSTATUS status) {
        if (m_status == ERROR_SUCCESS) {
            m_status = status;
        }
    }

    HRESULT Result() const { return HRESULT_FROM_WIN32(static_cast<unsigned long>(m_status)); }

  private:
    LSTATUS m_status = ERROR_SUCCESS;
};

bool HasSubkeys(HKEY root, const std::wstring& key) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
        return false;
    }
    DWORD count = 0;
    RegQueryInfoKeyW(opened, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(opened);
    return count != 0;
}

// A key that is not there, or that has keys of another program in it, is left as it is.
LSTATUS RemoveKey(HKEY root, const std::wstring& key) {
    if (HasSubkeys(root, key)) {
        return ERROR_SUCCESS;
    }
    const LSTATUS status = RegDeleteKeyW(root, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

LSTATUS WriteDefault(HKEY root, const std::wstring& key, const std::wstring& value) {
    HKEY opened = nullptr;
    LSTATUS status = RegCreateKeyExW(root, key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                                     &opened, nullptr);
    if (status == ERROR_SUCCESS) {
        const auto size = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
        status = RegSetValueExW(opened, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()), size);
        RegCloseKey(opened);
    }
    return status;
}

}  // namespace

HRESULT WriteScriptKeys(HINSTANCE module, RegistrationScope scope) {
    const ClassesRoot root = ClassesRootOf(scope);
    const std::wstring version = LibraryKey(root) + kVersion;
    const struct {
        std::wstring key;
        std::wstring value;
    } keys[] = {
        {version, L"FutureLib 1.0 Type Library"},
        {version + L"\\0\\win32", ModulePath(module)},
        {version + L"\\FLAGS", L"0"},
        {version + L"\\HELPDIR", L""},
    };
    FirstFailure failure;
    for (const auto& [key, value] : keys) {
        failure.Note(WriteDefault(root.key, key, value));
    }
    return failure.Result();
}

HRESULT RemoveScriptKeys(RegistrationScope scope) {
    const ClassesRoot root = ClassesRootOf(scope);
    const std::wstring library = LibraryKey(root);
    const std::wstring version = library + kVersion;
    FirstFailure failure;
    for (const wchar_t* below : {L"\\HELPDIR", L"\\FLAGS", L"\\0\\win32", L"\\0", L""}) {
        failure.Note(RemoveKey(root.key, version + below));
    }
    failure.Note(RemoveKey(root.key, library));
    return failure.Result();
}

}  // namespace Orvane::Internal
