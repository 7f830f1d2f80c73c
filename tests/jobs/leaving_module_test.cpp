// A module that has started jobs, and is unloaded.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/leaving_module.h"
#include "tests/support/child_process.h"
#include "tests/support/eventually.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

class Event {
  public:
    Event() : m_handle(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~Event() { CloseHandle(m_handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    HANDLE Handle() const { return m_handle; }
    void Set() const { SetEvent(m_handle); }

  private:
    HANDLE m_handle;
};

TEST(ModuleOfADetachedJob, StaysLoadedUntilTheJobIsGone) {
    const Event mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    ASSERT_TRUE(CALL_IN(module, StartDetached, mayEnd.Handle()));
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayEnd.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

TEST(ModuleOfAPostedJob, StaysLoadedUntilTheJobIsGone) {
    const Event mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    ASSERT_TRUE(CALL_IN(module, StartPosted, mayEnd.Handle()));
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayEnd.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

TEST(ModuleOfSeveralDetachedJobs, IsGoneAfterTheLastOfThem) {
    const Event first;
    const Event last;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(CALL_IN(module, StartDetached, first.Handle()));
    }
    ASSERT_TRUE(CALL_IN(module, StartDetached, last.Handle()));
    module.Free();
    first.Set();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    last.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

TEST(ModuleOfAGroup, IsUnloadedAtOnceWhenTheGroupHasLeft) {
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 20; ++i) {
        const LeavingModule module;
        ASSERT_TRUE(CALL_IN(module, StartGroup, i % 6));
        ASSERT_TRUE(CALL_IN(module, LeaveGroup));
        module.Free();
        ASSERT_FALSE(LeavingModule::IsLoaded());
    }
}

// A limit, not a promise: the C++ runtime keeps the module for the destructor.
TEST(ModuleWithAThreadLocalObject, StaysLoadedUntilTheWorkerEnds) {
    {
        const ConcurrencyLifetime lifetime;
        const LeavingModule module;
        ASSERT_TRUE(CALL_IN(module, TouchThreadLocal));
        module.Free();
        EXPECT_TRUE(LeavingModule::IsLoaded());
    }
    EXPECT_FALSE(LeavingModule::IsLoaded());
}

TEST(StaticGroupOfAModule, CannotLeaveWhileTheModuleIsUnloaded) {
    const ChildResult child = RunChild("leaving_module_test_child", {"leaves"});

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_NE(child.standardError.find("a group cannot leave in a DllMain"), std::string::npos) << child.standardError;
}

TEST(StaticGroupOfAModule, WithARunningJobEndsTheProcessWhenTheModuleIsUnloaded) {
    const ChildResult child = RunChild("leaving_module_test_child", {"is dropped"});

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "");
    EXPECT_NE(child.standardError.find("kept"), std::string::npos) << child.standardError;
}

}  // namespace
