#include "zarvo_orvane_logging/log.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "tests/siblings/scratch_folder.h"
#include "tests/support/import_patch.h"

using Zarvo::Test::ImportPatch;
using Zarvo::Test::ScratchFolder;

namespace {

constexpr const wchar_t* kSourcesKey = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";

// For this process, the machine's registry is an empty key of the test's own.
class EventSource : public testing::Test {
  protected:
    EventSource() : m_keyName(L"Software\\ZarvoTest-" + std::to_wstring(GetCurrentProcessId())) {
        RegCreateKeyExW(HKEY_CURRENT_USER, m_keyName.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr);
        EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_key), ERROR_SUCCESS);
    }
    ~EventSource() override {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(m_key);
        RegDeleteTreeW(HKEY_CURRENT_USER, m_keyName.c_str());
    }

    [[nodiscard]] bool Exists(const std::wstring& source) const {
        HKEY key = nullptr;
        const bool exists = RegOpenKeyExW(m_key, (kSourcesKey + source).c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS;
        RegCloseKey(key);
        return exists;
    }

    // The value as it is stored, if it is of this type.
    [[nodiscard]] std::optional<std::wstring> Text(const std::wstring& source, const wchar_t* name, DWORD type) const {
        wchar_t text[4096];
        DWORD size = sizeof(text);
        DWORD found = 0;
        if (RegGetValueW(m_key, (kSourcesKey + source).c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &found, text, &size) !=
                ERROR_SUCCESS ||
            found != type) {
            return std::nullopt;
        }
        return std::wstring(text, size / sizeof(wchar_t) - 1);
    }

    [[nodiscard]] std::optional<DWORD> Number(const std::wstring& source, const wchar_t* name) const {
        DWORD number = 0;
        DWORD size = sizeof(number);
        if (RegGetValueW(m_key, (kSourcesKey + source).c_str(), name, RRF_RT_REG_DWORD, nullptr, &number, &size) !=
            ERROR_SUCCESS) {
            return std::nullopt;
        }
        return number;
    }

    std::wstring m_keyName;
    HKEY m_key = nullptr;
};

std::wstring PathOf(HMODULE module) {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

LSTATUS WINAPI RefuseValue(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) {
    return ERROR_ACCESS_DENIED;
}

// A copy of a module in a folder whose path is far longer than MAX_PATH.
class DeepCopy {
  public:
    explicit DeepCopy(HMODULE module) {
        std::wstring folder = LR"(\\?\)" + m_scratch.File(L"deep").wstring();
        for (; folder.size() < 2 * MAX_PATH; folder += L"\\" + std::wstring(50, L'd')) {
            CreateDirectoryW(folder.c_str(), nullptr);
            m_folders.push_back(folder);
        }
        m_path = m_folders.back() + L"\\copy.dll";
        CopyFileW(PathOf(module).c_str(), m_path.c_str(), TRUE);
    }
    ~DeepCopy() {
        DeleteFileW(m_path.c_str());
        for (auto folder = m_folders.rbegin(); folder != m_folders.rend(); ++folder) {
            RemoveDirectoryW(folder->c_str());
        }
    }
    DeepCopy(const DeepCopy&) = delete;
    DeepCopy& operator=(const DeepCopy&) = delete;

    [[nodiscard]] const std::wstring& Path() const { return m_path; }

  private:
    ScratchFolder m_scratch;
    std::vector<std::wstring> m_folders;
    std::wstring m_path;
};

}  // namespace

TEST_F(EventSource, RegisteringWritesTheModuleAndTheTypesOfItsEvents) {
    HMODULE const module = GetModuleHandleW(L"ZarvoOrvaneLogging.dll");
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", module), S_OK);
    EXPECT_EQ(Text(L"Some Source", L"EventMessageFile", REG_EXPAND_SZ), PathOf(module));
    EXPECT_EQ(Number(L"Some Source", L"TypesSupported"), 7u);
}

TEST_F(EventSource, RegisteringAgainTakesTheSourceOver) {
    HMODULE const program = GetModuleHandleW(nullptr);
    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(L"kernel32.dll")), S_OK);
    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", program), S_OK);
    EXPECT_EQ(Text(L"Some Source", L"EventMessageFile", REG_EXPAND_SZ), PathOf(program));
}

TEST_F(EventSource, UnregisteringRemovesThisSourceOnly) {
    ASSERT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(nullptr)), S_OK);
    ASSERT_EQ(Log::RegisterEventSourceW(L"Other Source", GetModuleHandleW(nullptr)), S_OK);
    EXPECT_EQ(Log::UnregisterEventSource(L"Some Source"), S_OK);
    EXPECT_FALSE(Exists(L"Some Source"));
    EXPECT_TRUE(Exists(L"Other Source"));
}

TEST_F(EventSource, UnregisteringWhatIsNotThereFailsAndLeavesNothing) {
    EXPECT_EQ(Log::UnregisterEventSource(L"Some Source"), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(Exists(L"Some Source"));
}

// An empty name, or one that leads elsewhere, would be the key of the whole event log or of something else.
TEST_F(EventSource, NamesThatAreNoNamesAreRefused) {
    ASSERT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(nullptr)), S_OK);
    for (const wchar_t* name : {static_cast<const wchar_t*>(nullptr), L"", L"\\", L"Some Source\\below"}) {
        EXPECT_EQ(Log::RegisterEventSourceW(name, GetModuleHandleW(nullptr)), E_INVALIDARG);
        EXPECT_EQ(Log::UnregisterEventSource(name), E_INVALIDARG);
    }
    EXPECT_TRUE(Exists(L"Some Source"));
    EXPECT_FALSE(Exists(L"Some Source\\below"));
}

TEST_F(EventSource, ModuleThatIsNoneFailsAndLeavesNothing) {
    EXPECT_LT(Log::RegisterEventSourceW(L"Some Source", reinterpret_cast<HINSTANCE>(0x10000)), 0);
    EXPECT_FALSE(Exists(L"Some Source"));
}

TEST_F(EventSource, FailureToWriteLeavesNoNewKey) {
    const ImportPatch refusal(GetModuleHandleW(L"ZarvoOrvaneLogging.dll"), "RegSetValueExW", &RefuseValue);
    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(nullptr)), E_ACCESSDENIED);
    EXPECT_FALSE(Exists(L"Some Source"));
}

TEST_F(EventSource, FailureToWriteLeavesTheSourceThatWasThere) {
    ASSERT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(nullptr)), S_OK);
    const ImportPatch refusal(GetModuleHandleW(L"ZarvoOrvaneLogging.dll"), "RegSetValueExW", &RefuseValue);
    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", GetModuleHandleW(nullptr)), E_ACCESSDENIED);
    EXPECT_EQ(Text(L"Some Source", L"EventMessageFile", REG_EXPAND_SZ), PathOf(nullptr));
}

TEST_F(EventSource, NameThatTheRegistryRefusesFails) {
    EXPECT_LT(Log::RegisterEventSourceW(std::wstring(300, L'n').c_str(), GetModuleHandleW(nullptr)), 0);
}

TEST_F(EventSource, ModulePathMayBeLongerThanMaxPath) {
    const DeepCopy copy(GetModuleHandleW(L"ZarvoLogging.dll"));
    HMODULE const module = LoadLibraryW(copy.Path().c_str());
    ASSERT_NE(module, nullptr) << GetLastError();

    EXPECT_EQ(Log::RegisterEventSourceW(L"Some Source", module), S_OK);
    const std::wstring path = Text(L"Some Source", L"EventMessageFile", REG_EXPAND_SZ).value_or(L"");
    EXPECT_GT(path.size(), 400u);
    EXPECT_EQ(path, PathOf(module));
    FreeLibrary(module);
}
