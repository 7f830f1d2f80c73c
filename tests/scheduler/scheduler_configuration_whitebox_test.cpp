#include "concurrency/scheduler/scheduler_configuration.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/scheduler/scratch_configuration.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Watches the library open and close registry keys, for a user who may write them or not.
class RegistryWatch {
  public:
    explicit RegistryWatch(REGSAM refused = 0) {
        s_open = m_open.Original<OpenKey>();
        s_close = m_close.Original<CloseKey>();
        s_refused = refused;
        opened = closed = 0;
    }
    RegistryWatch(const RegistryWatch&) = delete;
    RegistryWatch& operator=(const RegistryWatch&) = delete;

    static inline int opened = 0;
    static inline int closed = 0;

    // Of the last key that was asked for.
    static inline HKEY root = nullptr;
    static inline std::wstring path;
    static inline REGSAM access = 0;

  private:
    using OpenKey = LSTATUS WINAPI(HKEY, LPCWSTR, DWORD, REGSAM, HKEY*);
    using CloseKey = LSTATUS WINAPI(HKEY);

    static LSTATUS WINAPI Open(HKEY key, LPCWSTR subkey, DWORD options, REGSAM wanted, HKEY* result) {
        root = key;
        path = subkey;
        access = wanted;
        const LSTATUS status =
            (wanted & s_refused) != 0 ? ERROR_ACCESS_DENIED : s_open(key, subkey, options, wanted, result);
        opened += status == ERROR_SUCCESS ? 1 : 0;
        return status;
    }
    static LSTATUS WINAPI Close(HKEY key) {
        ++closed;
        return s_close(key);
    }

    static inline OpenKey* s_open = nullptr;
    static inline CloseKey* s_close = nullptr;
    static inline REGSAM s_refused = 0;

    const ImportPatch m_open{LibraryUnderTest(), "RegOpenKeyExW", &Open};
    const ImportPatch m_close{LibraryUnderTest(), "RegCloseKey", &Close};
};

LSTATUS WINAPI FailWithAValue(HKEY, LPCWSTR, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
    *type = REG_DWORD;
    *reinterpret_cast<DWORD*>(data) = 1;
    *size = sizeof(DWORD);
    return ERROR_READ_FAULT;
}

class SchedulerConfigurationTest : public testing::Test {
  protected:
    static std::uint32_t ReadMode() {
        SchedulerConfiguration configuration;
        configuration.IntervalExceededAssertMode = 77;
        configuration.Read();
        return configuration.IntervalExceededAssertMode;
    }

    // What cannot be read is passed over in silence.
    void TearDown() override { EXPECT_TRUE(m_reports.All().empty()); }

    ScratchConfiguration m_registry;
    const RecordedReports m_reports;
};

TEST_F(SchedulerConfigurationTest, IsZeroBeforeItIsRead) {
    EXPECT_EQ(SchedulerConfiguration().IntervalExceededAssertMode, 0U);
}

TEST_F(SchedulerConfigurationTest, IsZeroWithoutAKey) {
    EXPECT_EQ(ReadMode(), 0U);
}

TEST_F(SchedulerConfigurationTest, IsZeroWithoutAValue) {
    m_registry.MakeSchedulerKey();

    EXPECT_EQ(ReadMode(), 0U);
}

TEST_F(SchedulerConfigurationTest, TakesEveryNumber) {
    for (const std::uint32_t mode : {0U, 1U, 2U, 0x8000'0000U, 0xFFFF'FFFFU}) {
        m_registry.SetAssertMode(mode);
        EXPECT_EQ(ReadMode(), mode);
    }
}

TEST_F(SchedulerConfigurationTest, IgnoresAValueOfAnotherType) {
    const std::uint64_t one = 1;
    const std::vector<std::pair<DWORD, DWORD>> kinds{{REG_SZ, 4},     {REG_EXPAND_SZ, 4}, {REG_MULTI_SZ, 4},
                                                     {REG_BINARY, 4}, {REG_BINARY, 1},    {REG_DWORD_BIG_ENDIAN, 4},
                                                     {REG_NONE, 4},   {REG_NONE, 0},      {REG_LINK, 4},
                                                     {REG_QWORD, 8},  {REG_BINARY, 8}};
    for (const auto& [type, size] : kinds) {
        m_registry.SetAssertMode(type, &one, size);
        EXPECT_EQ(ReadMode(), 0U) << "type " << type << " of " << size << " bytes";
    }
    m_registry.SetAssertMode(REG_SZ, L"1", 4);
    EXPECT_EQ(ReadMode(), 0U);
}

TEST_F(SchedulerConfigurationTest, IgnoresANumberThatIsTooLong) {
    const DWORD numbers[] = {1, 0};
    m_registry.SetAssertMode(REG_DWORD, numbers, sizeof numbers);

    EXPECT_EQ(ReadMode(), 0U);
}

TEST_F(SchedulerConfigurationTest, AsksForItsKeyToReadAndToWrite) {
    const RegistryWatch watch;

    ReadMode();

    EXPECT_EQ(watch.root, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(watch.path, L"Software\\ZARVO\\Orvane\\SchedulerConfiguration\\Default");
    EXPECT_EQ(watch.access, static_cast<REGSAM>(0x2001F));
}

TEST_F(SchedulerConfigurationTest, IsZeroForAUserWhoMayOnlyRead) {
    m_registry.SetAssertMode(1);
    const RegistryWatch watch(KEY_SET_VALUE);

    EXPECT_EQ(ReadMode(), 0U);
    EXPECT_EQ(watch.closed, 0);
}

TEST_F(SchedulerConfigurationTest, IsZeroWhenTheValueCannotBeRead) {
    m_registry.SetAssertMode(1);
    const ImportPatch query(LibraryUnderTest(), "RegQueryValueExW", &FailWithAValue);

    EXPECT_EQ(ReadMode(), 0U);
}

TEST_F(SchedulerConfigurationTest, ClosesTheKeyThatItOpened) {
    const auto readAndExpect = [](int expected) {
        const RegistryWatch watch;
        ReadMode();
        EXPECT_EQ(watch.opened, expected);
        EXPECT_EQ(watch.closed, expected);
    };

    readAndExpect(0);
    m_registry.MakeSchedulerKey();
    readAndExpect(1);
    m_registry.SetAssertMode(REG_SZ, L"1", 4);
    readAndExpect(1);
    m_registry.SetAssertMode(1);
    readAndExpect(1);
}

}  // namespace
