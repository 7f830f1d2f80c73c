// The module object, with classes as the library has none.
#include "concurrency/com/module.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <string>

namespace {

using namespace Orvane::Internal;

constexpr CLSID kFirst{1, 0, 0, {}};
constexpr CLSID kSecond{2, 0, 0, {}};
constexpr CLSID kUnknown{3, 0, 0, {}};

std::string g_calls;
HRESULT g_firstResult;
HRESULT g_secondResult;

HRESULT GetObjectOf(const char* name, void** object, HRESULT result) {
    g_calls += std::string("get ") + name + " ";
    *object = &g_calls;
    return result;
}

HRESULT Update(const char* name, bool registering, HRESULT result) {
    g_calls += std::string(registering ? "register " : "unregister ") + name + " ";
    return result;
}

void Hook(const char* name, bool attaching) {
    g_calls += std::string(attaching ? "attach " : "detach ") + name + " ";
}

const ObjectMapEntry kClasses[] = {
    {&kFirst, [](REFIID, void** object) { return GetObjectOf("first", object, S_OK); },
     [](bool registering) { return Update("first", registering, g_firstResult); },
     [](bool attaching) { Hook("first", attaching); }},
    {&kSecond, [](REFIID, void** object) { return GetObjectOf("second", object, E_NOINTERFACE); },
     [](bool registering) { return Update("second", registering, g_secondResult); },
     [](bool attaching) { Hook("second", attaching); }},
};

class ModuleTest : public testing::Test {
  protected:
    ModuleTest() {
        g_calls.clear();
        g_firstResult = S_OK;
        g_secondResult = S_OK;
    }

    Module m_module{kClasses};
};

TEST_F(ModuleTest, RunsTheHookOfEveryClass) {
    m_module.Attach(GetModuleHandleW(nullptr));
    EXPECT_EQ(m_module.Handle(), GetModuleHandleW(nullptr));
    m_module.Detach();
    EXPECT_EQ(g_calls, "attach first attach second detach first detach second ");
}

TEST_F(ModuleTest, FindsTheClassAsked) {
    void* object = nullptr;
    EXPECT_EQ(m_module.GetClassObject(kFirst, IID_IClassFactory, &object), S_OK);
    EXPECT_EQ(object, &g_calls);
    EXPECT_EQ(m_module.GetClassObject(kSecond, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(g_calls, "get first get second ");
}

TEST_F(ModuleTest, DoesNotFindAnother) {
    void* object = &g_calls;
    EXPECT_EQ(m_module.GetClassObject(kUnknown, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(g_calls, "");
}

TEST_F(ModuleTest, RegistersEveryClass) {
    EXPECT_EQ(m_module.UpdateClassRegistrations(true), S_OK);
    EXPECT_EQ(m_module.UpdateClassRegistrations(false), S_OK);
    EXPECT_EQ(g_calls, "register first register second unregister first unregister second ");
}

TEST_F(ModuleTest, GivesTheFirstFailureAndGoesOn) {
    g_firstResult = E_FAIL;
    g_secondResult = E_ACCESSDENIED;
    EXPECT_EQ(m_module.UpdateClassRegistrations(true), E_FAIL);
    EXPECT_EQ(g_calls, "register first register second ");
    g_firstResult = S_OK;
    EXPECT_EQ(m_module.UpdateClassRegistrations(true), E_ACCESSDENIED);
}

TEST_F(ModuleTest, CannotBeUnloadedWhileItIsLocked) {
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    m_module.Lock();
    m_module.Lock();
    m_module.Unlock();
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    m_module.Unlock();
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
}

// The entry point is compiled into this program.
TEST(EntryPoints, SayThatALockedModuleCannotBeUnloaded) {
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
    Module::Instance().Lock();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    Module::Instance().Unlock();
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace
