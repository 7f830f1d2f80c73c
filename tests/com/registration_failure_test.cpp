// Each step of registration that can fail: what is returned, and what the other steps have done.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <objbase.h>
#include <oleauto.h>

#include <new>
#include <utility>

#include "tests/com/scratch_registry.h"
#include "tests/support/allocations.h"

namespace {

using namespace Zarvo::Test;

constexpr HRESULT kFailure = E_ACCESSDENIED;

HMODULE LoggingLibrary() {
    return GetModuleHandleW(L"ZarvoOrvaneLogging.dll");
}

LSTATUS WINAPI RefuseKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) {
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI RefuseValue(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) {
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI RefuseDelete(HKEY, LPCWSTR) {
    return ERROR_ACCESS_DENIED;
}

DWORD WINAPI NoPath(HMODULE, LPWSTR, DWORD) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return 0;
}

class RegistrationFailure : public testing::Test {
  protected:
    bool HasEventSource() const { return Has(L"hklm", L"zarvo concurrency"); }
    bool HasTypeLibrary() const { return Has(L"hkcr", L"win64"); }
    bool HasScriptKeys() const { return Has(L"hkcr", L"win32"); }

    const ScratchRegistry m_registry;

  private:
    bool Has(const std::wstring& root, const std::wstring& name) const {
        for (const auto& [path, value] : m_registry.Dump()) {
            if (path.starts_with(root) && path.ends_with(name)) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(RegistrationFailure, OfTheEventSourceDoesNotKeepTheOtherSteps) {
    const ImportPatch refused(LoggingLibrary(), "RegCreateKeyExW", RefuseKey);

    EXPECT_EQ(Register(), kFailure);
    EXPECT_FALSE(HasEventSource());
    EXPECT_TRUE(HasTypeLibrary());
    EXPECT_TRUE(HasScriptKeys());
}

TEST_F(RegistrationFailure, ToLoadTheTypeLibraryDoesNotKeepTheOtherSteps) {
    const ImportPatch refused(
        LibraryUnderTest(), "LoadTypeLibEx",
        +[](LPCOLESTR, REGKIND, ITypeLib**) -> HRESULT { return TYPE_E_CANTLOADLIBRARY; });

    EXPECT_EQ(Register(), TYPE_E_CANTLOADLIBRARY);
    EXPECT_TRUE(HasEventSource());
    EXPECT_FALSE(HasTypeLibrary());
    EXPECT_TRUE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTheTypeLibraryDoesNotKeepTheOtherSteps) {
    const ImportPatch refused(
        LibraryUnderTest(), "RegisterTypeLib",
        +[](ITypeLib*, OLECHAR*, OLECHAR*) -> HRESULT { return TYPE_E_REGISTRYACCESS; });

    EXPECT_EQ(Register(), TYPE_E_REGISTRYACCESS);
    EXPECT_TRUE(HasEventSource());
    EXPECT_TRUE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTheScriptIsTheResultThenTheRestStands) {
    {
        const ImportPatch refused(LibraryUnderTest(), "RegCreateKeyExW", RefuseKey);
        EXPECT_EQ(Register(), kFailure);
    }
    {
        const ImportPatch refused(LibraryUnderTest(), "RegSetValueExW", RefuseValue);
        EXPECT_EQ(Register(), kFailure);
    }
    EXPECT_TRUE(HasEventSource());
    EXPECT_TRUE(HasTypeLibrary());
}

// Refuses the first key that it is asked for.
LSTATUS WINAPI RefuseFirstKey(HKEY root, LPCWSTR key, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                              LPSECURITY_ATTRIBUTES security, PHKEY opened, LPDWORD disposition) {
    static bool refused = false;
    return std::exchange(refused, true)
               ? RegCreateKeyExW(root, key, reserved, type, options, access, security, opened, disposition)
               : ERROR_ACCESS_DENIED;
}

TEST_F(RegistrationFailure, OfOneKeyOfTheScriptDoesNotKeepTheOthers) {
    const ImportPatch refused(LibraryUnderTest(), "RegCreateKeyExW", RefuseFirstKey);

    EXPECT_EQ(Register(), kFailure);
    EXPECT_TRUE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTwoStepsReturnsTheFirst) {
    const ImportPatch refusedLibrary(
        LibraryUnderTest(), "RegisterTypeLib",
        +[](ITypeLib*, OLECHAR*, OLECHAR*) -> HRESULT { return TYPE_E_REGISTRYACCESS; });
    const ImportPatch refusedScript(LibraryUnderTest(), "RegCreateKeyExW", RefuseKey);

    EXPECT_EQ(Register(), TYPE_E_REGISTRYACCESS);
}

TEST_F(RegistrationFailure, ToFindTheModulesFileIsAResultToo) {
    const ImportPatch noPath(LibraryUnderTest(), "GetModuleFileNameW", NoPath);

    EXPECT_EQ(Register(), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_TRUE(HasEventSource());
}

TEST_F(RegistrationFailure, ForLackOfMemoryIsAResultToo) {
    const ImportPatch noMemory(
        LibraryUnderTest(), "GetModuleFileNameW", +[](HMODULE, LPWSTR, DWORD) -> DWORD { throw std::bad_alloc(); });

    EXPECT_EQ(Register(), E_OUTOFMEMORY);
}

TEST_F(RegistrationFailure, OfTheFirstStepBackDoesNotKeepTheOthers) {
    ASSERT_EQ(Register(), S_OK);
    {
        const ImportPatch refused(LoggingLibrary(), "RegDeleteKeyW", RefuseDelete);
        EXPECT_EQ(Unregister(), kFailure);
    }
    EXPECT_TRUE(HasEventSource());
    EXPECT_FALSE(HasTypeLibrary());
    EXPECT_FALSE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTheTypeLibrarysRemovalDoesNotKeepTheOthers) {
    ASSERT_EQ(Register(), S_OK);
    {
        const ImportPatch refused(
            LibraryUnderTest(), "UnRegisterTypeLib",
            +[](REFGUID, WORD, WORD, LCID, SYSKIND) -> HRESULT { return TYPE_E_REGISTRYACCESS; });
        EXPECT_EQ(Unregister(), TYPE_E_REGISTRYACCESS);
    }
    EXPECT_FALSE(HasEventSource());
    EXPECT_FALSE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTheScriptsRemovalIsTheResult) {
    ASSERT_EQ(Register(), S_OK);
    {
        const ImportPatch refused(LibraryUnderTest(), "RegDeleteKeyW", RefuseDelete);
        EXPECT_EQ(Unregister(), kFailure);
    }
    EXPECT_FALSE(HasEventSource());
    EXPECT_FALSE(HasTypeLibrary());
    EXPECT_TRUE(HasScriptKeys());
}

TEST_F(RegistrationFailure, OfTwoStepsBackReturnsTheFirst) {
    ASSERT_EQ(Register(), S_OK);
    const ImportPatch refusedLibrary(
        LibraryUnderTest(), "UnRegisterTypeLib",
        +[](REFGUID, WORD, WORD, LCID, SYSKIND) -> HRESULT { return TYPE_E_REGISTRYACCESS; });
    const ImportPatch refusedScript(LibraryUnderTest(), "RegDeleteKeyW", RefuseDelete);

    EXPECT_EQ(Unregister(), TYPE_E_REGISTRYACCESS);
}

}  // namespace
