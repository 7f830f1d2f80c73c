// What the module asks of the platform's registrar, and what it makes of the answers.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <string>

#include "tests/com/scratch_registry.h"

namespace {

using namespace Zarvo::Test;

// Stands for the platform's registrar. Its slots in their order.
class FakeRegistrar {
  public:
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) { return E_NOINTERFACE; }
    virtual ULONG STDMETHODCALLTYPE AddRef() { return 1; }
    virtual ULONG STDMETHODCALLTYPE Release() {
        ++releases;
        return 0;
    }
    virtual HRESULT STDMETHODCALLTYPE AddReplacement(LPCOLESTR key, LPCOLESTR item) {
        replacement = std::wstring(key) + L"=" + item;
        return replacementResult;
    }
    virtual HRESULT STDMETHODCALLTYPE ClearReplacements() { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE ResourceRegisterSz(LPCOLESTR, LPCOLESTR, LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregisterSz(LPCOLESTR, LPCOLESTR, LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE FileRegister(LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE FileUnregister(LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE StringRegister(LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE StringUnregister(LPCOLESTR) { return Unused(); }
    virtual HRESULT STDMETHODCALLTYPE ResourceRegister(LPCOLESTR file, UINT id, LPCOLESTR type) {
        call = L"register " + std::wstring(file) + L" " + std::to_wstring(id) + L" " + type;
        return callResult;
    }
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregister(LPCOLESTR file, UINT id, LPCOLESTR type) {
        call = L"unregister " + std::wstring(file) + L" " + std::to_wstring(id) + L" " + type;
        return callResult;
    }

    std::wstring replacement;
    std::wstring call;
    HRESULT replacementResult = S_OK;
    HRESULT callResult = S_OK;
    int releases = 0;

  protected:
    ~FakeRegistrar() = default;

  private:
    static HRESULT Unused() {
        ADD_FAILURE() << "not the call that was to be made";
        return E_NOTIMPL;
    }
};

class TheRegistrar final : public FakeRegistrar {};

TheRegistrar g_registrar;
CLSID g_askedClass;
IID g_askedInterface;

HRESULT STDAPICALLTYPE GiveFake(REFCLSID classId, LPUNKNOWN, DWORD, REFIID interfaceId, LPVOID* object) {
    g_askedClass = classId;
    g_askedInterface = interfaceId;
    *object = &g_registrar;
    return S_OK;
}

class PlatformRegistrar : public testing::Test {
  protected:
    const std::wstring m_path = PathOf(LibraryUnderTest());
    const ScratchRegistry m_registry;
    const ImportPatch m_fake{LibraryUnderTest(), "CoCreateInstance", GiveFake};
};

TEST_F(PlatformRegistrar, IsGivenTheScriptAndTheModulesPath) {
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(g_registrar.replacement, L"Module=" + m_path);
    EXPECT_EQ(g_registrar.call, L"register " + m_path + L" 4104 REGISTRY");
    EXPECT_EQ(g_registrar.releases, 1);

    EXPECT_EQ(Unregister(), S_OK);
    EXPECT_EQ(g_registrar.replacement, L"Module=" + m_path);
    EXPECT_EQ(g_registrar.call, L"unregister " + m_path + L" 4104 REGISTRY");
    EXPECT_EQ(g_registrar.releases, 2);
}

TEST_F(PlatformRegistrar, IsTheSystems) {
    ASSERT_EQ(Register(), S_OK);
    wchar_t text[40];
    StringFromGUID2(g_askedClass, text, 40);
    EXPECT_STREQ(text, L"{44EC053A-400F-11D0-9DCD-00A0C90391D3}");
    StringFromGUID2(g_askedInterface, text, 40);
    EXPECT_STREQ(text, L"{44EC053B-400F-11D0-9DCD-00A0C90391D3}");
}

TEST_F(PlatformRegistrar, ThatRefusesTheReplacementIsAskedNoMore) {
    g_registrar.replacementResult = E_FAIL;
    EXPECT_EQ(Register(), E_FAIL);
    EXPECT_EQ(g_registrar.call, L"");
    EXPECT_EQ(g_registrar.releases, 1);
}

TEST_F(PlatformRegistrar, ThatFailsDecidesTheResult) {
    g_registrar.callResult = DISP_E_EXCEPTION;
    EXPECT_EQ(Register(), DISP_E_EXCEPTION);
    g_registrar.callResult = S_OK;
    ASSERT_EQ(Register(), S_OK);
    g_registrar.callResult = DISP_E_EXCEPTION;
    EXPECT_EQ(Unregister(), DISP_E_EXCEPTION);
}

// The call brings its thread into an apartment and out again, and leaves one that it was in alone.
TEST_F(PlatformRegistrar, IsCalledInAnApartmentThatEndsWithTheCall) {
    ASSERT_EQ(Register(), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(Register(), S_OK);
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    CoUninitialize();
}

}  // namespace
