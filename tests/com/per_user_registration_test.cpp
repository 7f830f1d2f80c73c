// Registration for the user alone.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <oleauto.h>

#include <cstring>
#include <string>

#include "tests/com/scratch_registry.h"

namespace {

using namespace Zarvo::Test;

FARPROC (*g_lookUp)(HMODULE, LPCSTR);
std::wstring g_registeredPath;
std::wstring g_helpFolder;
int g_unregistered;

HRESULT STDAPICALLTYPE RegisterForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder) {
    EXPECT_NE(library, nullptr);
    g_registeredPath = path;
    g_helpFolder = helpFolder;
    return S_OK;
}

HRESULT STDAPICALLTYPE UnregisterForUser(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND kind) {
    wchar_t text[40];
    StringFromGUID2(id, text, 40);
    EXPECT_STREQ(text, L"{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}");
    EXPECT_EQ(major, 1);
    EXPECT_EQ(minor, 0);
    EXPECT_EQ(locale, 0x409U);
    EXPECT_EQ(kind, SYS_WIN64);
    ++g_unregistered;
    return S_OK;
}

template <typename Function>
FARPROC AsProcedure(Function* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

// The two calls for one user, found by name.
FARPROC WINAPI FindOurs(HMODULE module, LPCSTR name) {
    if (module == GetModuleHandleW(L"OLEAUT32.DLL") && std::strcmp(name, "RegisterTypeLibForUser") == 0) {
        return AsProcedure(RegisterForUser);
    }
    if (module == GetModuleHandleW(L"OLEAUT32.DLL") && std::strcmp(name, "UnRegisterTypeLibForUser") == 0) {
        return AsProcedure(UnregisterForUser);
    }
    return g_lookUp(module, name);
}

FARPROC WINAPI FindNothing(HMODULE, LPCSTR) {
    return nullptr;
}

class PerUserRegistration : public testing::Test {
  protected:
    PerUserRegistration() { SetEnvironmentVariableW(L"ZARVO_REGISTER_PER_USER", L"1"); }

    const std::wstring m_path = PathOf(LibraryUnderTest());
    const ScratchRegistry m_registry;
};

TEST_F(PerUserRegistration, WritesTheScriptsKeysForTheUserAndCallsTheSystemForTheUser) {
    g_lookUp = reinterpret_cast<FARPROC (*)(HMODULE, LPCSTR)>(ImportedFunction(LibraryUnderTest(), "GetProcAddress"));
    const ImportPatch ours(LibraryUnderTest(), "GetProcAddress", FindOurs);
    EXPECT_EQ(Register(), S_OK);

    EXPECT_EQ(g_registeredPath, m_path + L"\\3");
    EXPECT_EQ(g_helpFolder, L"");
    RegistryDump expected;
    AddEventSource(expected, m_path);
    AddScriptKeys(expected, L"HKCU\\Software\\Classes", m_path);
    EXPECT_EQ(m_registry.Dump(), expected);
}

TEST_F(PerUserRegistration, IsTakenBackForTheUser) {
    g_lookUp = reinterpret_cast<FARPROC (*)(HMODULE, LPCSTR)>(ImportedFunction(LibraryUnderTest(), "GetProcAddress"));
    const ImportPatch ours(LibraryUnderTest(), "GetProcAddress", FindOurs);
    ASSERT_EQ(Register(), S_OK);
    EXPECT_EQ(Unregister(), S_OK);

    EXPECT_EQ(g_unregistered, 1);
    for (const auto& [path, value] : m_registry.Dump()) {
        EXPECT_EQ(path.find(L"55ec072b"), std::wstring::npos);
        EXPECT_EQ(path.find(L"zarvo"), std::wstring::npos);
    }
}

TEST_F(PerUserRegistration, WorksWithTheSystemsOwnCalls) {
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(Unregister(), S_OK);
}

TEST_F(PerUserRegistration, FailsWhereTheSystemCannotRegisterForAUser) {
    const ImportPatch without(LibraryUnderTest(), "GetProcAddress", FindNothing);
    EXPECT_EQ(Register(), TYPE_E_REGISTRYACCESS);
    EXPECT_EQ(Unregister(), TYPE_E_REGISTRYACCESS);
}

TEST_F(PerUserRegistration, IsOnlyMeantByOne) {
    for (const wchar_t* value : {L"0", L"", L"11", L"yes"}) {
        SetEnvironmentVariableW(L"ZARVO_REGISTER_PER_USER", value);
        ASSERT_EQ(Register(), S_OK);
        EXPECT_EQ(m_registry.Dump(), RegisteredAt(m_path));
    }
    SetEnvironmentVariableW(L"ZARVO_REGISTER_PER_USER", nullptr);
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(m_registry.Dump(), RegisteredAt(m_path));
}

}  // namespace
