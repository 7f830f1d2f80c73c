// The way of an installer: the system's own program registers the DLL and takes the registration back.
#include "tests/com/registration.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace Zarvo::Test;

// The exit code of the system's program.
DWORD RunRegsvr32(const std::wstring& arguments) {
    std::wstring command = L"regsvr32.exe /s " + arguments;
    STARTUPINFOW start{};
    start.cb = sizeof(start);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &process)) {
        return GetLastError();
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

// What the real registry has of the library.
RegistryDump Registered() {
    const struct {
        HKEY root;
        const wchar_t* rootName;
        const wchar_t* key;
    } keys[] = {
        {HKEY_CLASSES_ROOT, L"hkcr", L"TypeLib\\{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}"},
        {HKEY_CLASSES_ROOT, L"hkcr", L"Interface\\{03D3BEE8-7768-4137-A1A5-FD9C9095A237}"},
        {HKEY_LOCAL_MACHINE, L"hklm", L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\ZARVO Concurrency"},
    };
    RegistryDump dump;
    for (const auto& [root, rootName, key] : keys) {
        HKEY opened = nullptr;
        if (RegOpenKeyExW(root, key, 0, KEY_READ, &opened) == ERROR_SUCCESS) {
            DumpKey(opened, std::wstring(rootName) + L"\\" + InLowerCase(key), dump);
            RegCloseKey(opened);
        }
    }
    return dump;
}

// Without the keys that others have keys in as well.
RegistryDump ExpectedAt(const std::wstring& path) {
    RegistryDump expected;
    for (const auto& [key, value] : RegisteredAt(path)) {
        for (const wchar_t* own : {L"{55ec072b-2104-4ebd-a91f-41fa01b7f6e6}", L"{03d3bee8-7768-4137-a1a5-fd9c9095a237}",
                                   L"zarvo concurrency"}) {
            const std::size_t at = key.find(own);
            if (at != std::wstring::npos && key.size() > at + std::wstring(own).size()) {
                expected[key] = value;
            }
        }
    }
    return expected;
}

// Only where the registry is the build's own: under Wine.
TEST(Regsvr32, RegistersAndUnregistersTheModule) {
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr) {
        GTEST_SKIP() << "this would write to the machine's registry";
    }
    const std::wstring path = PathOf(LibraryUnderTest());
    RunRegsvr32(L"/u \"" + path + L"\"");
    ASSERT_EQ(Registered(), RegistryDump());

    EXPECT_EQ(RunRegsvr32(L"\"" + path + L"\""), 0U);
    EXPECT_EQ(Registered(), ExpectedAt(path));

    EXPECT_EQ(RunRegsvr32(L"/u \"" + path + L"\""), 0U);
    EXPECT_EQ(Registered(), RegistryDump());
    EXPECT_NE(RunRegsvr32(L"/u \"" + path + L"\""), 0U);
}

}  // namespace
