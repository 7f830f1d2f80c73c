#include "tests/com/scratch_registry.h"

#include <cwctype>
#include <stdexcept>
#include <vector>

namespace Zarvo::Test {

namespace {

HKEY CreateKey(const std::wstring& path) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        throw std::runtime_error("ScratchRegistry: no key");
    }
    return key;
}

std::wstring ValueText(DWORD type, const std::vector<wchar_t>& data, DWORD bytes) {
    if (type == REG_DWORD) {
        return L"dword:" + std::to_wstring(*reinterpret_cast<const DWORD*>(data.data()));
    }
    const std::wstring text(data.data(), bytes / sizeof(wchar_t));
    const std::wstring value = text.substr(0, text.find(L'\0'));
    return type == REG_SZ ? value : L"type " + std::to_wstring(type) + L":" + value;
}

void DumpValues(HKEY key, const std::wstring& path, RegistryDump& dump) {
    for (DWORD index = 0;; ++index) {
        wchar_t name[256];
        DWORD nameLength = 256;
        DWORD type = 0;
        std::vector<wchar_t> data(4096);
        auto bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
        if (RegEnumValueW(key, index, name, &nameLength, nullptr, &type, reinterpret_cast<BYTE*>(data.data()),
                          &bytes) != ERROR_SUCCESS) {
            return;
        }
        dump[path + L"@" + InLowerCase(name)] = ValueText(type, data, bytes);
    }
}

}  // namespace

std::wstring InLowerCase(std::wstring name) {
    for (wchar_t& character : name) {
        character = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
    }
    return name;
}

void DumpKey(HKEY key, const std::wstring& path, RegistryDump& dump) {
    DumpValues(key, path, dump);
    for (DWORD index = 0;; ++index) {
        wchar_t name[256];
        DWORD length = 256;
        if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return;
        }
        const std::wstring child = path + L"\\" + InLowerCase(name);
        dump[child];
        HKEY opened = nullptr;
        if (RegOpenKeyExW(key, name, 0, KEY_READ, &opened) == ERROR_SUCCESS) {
            DumpKey(opened, child, dump);
            RegCloseKey(opened);
        }
    }
}

ScratchRegistry::ScratchRegistry() : m_name(L"Software\\ZarvoTest-" + std::to_wstring(GetCurrentProcessId())) {
    m_classes = CreateKey(m_name + L"\\HKCR");
    m_user = CreateKey(m_name + L"\\HKCU");
    m_machine = CreateKey(m_name + L"\\HKLM");
    if (RegOverridePredefKey(HKEY_CLASSES_ROOT, m_classes) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_machine) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_CURRENT_USER, m_user) != ERROR_SUCCESS) {
        throw std::runtime_error("ScratchRegistry: the roots cannot be replaced");
    }
}

ScratchRegistry::~ScratchRegistry() {
    for (HKEY root : {HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        RegOverridePredefKey(root, nullptr);
    }
    for (HKEY key : {m_classes, m_user, m_machine}) {
        RegCloseKey(key);
    }
    RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
}

RegistryDump ScratchRegistry::Dump() const {
    RegistryDump dump;
    DumpKey(m_classes, L"hkcr", dump);
    DumpKey(m_user, L"hkcu", dump);
    DumpKey(m_machine, L"hklm", dump);
    return dump;
}

}  // namespace Zarvo::Test
