// A module that has started jobs, and is unloaded.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/this_job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/held_unpin.h"
#include "tests/jobs/leaving_module.h"
#include "tests/jobs/own_event.h"
#include "tests/support/child_process.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(ModuleOfADetachedJob, StaysLoadedUntilTheJobIsGone) {
    const OwnEvent mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    ASSERT_TRUE(module.Call("StartDetached", mayEnd.Get()));
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayEnd.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

TEST(ModuleOfAPostedJob, StaysLoadedUntilTheJobIsGone) {
    const OwnEvent mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    ASSERT_TRUE(module.Call("StartPosted", mayEnd.Get()));
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayEnd.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

TEST(ModuleOfSeveralDetachedJobs, IsGoneAfterTheLastOfThem) {
    const OwnEvent first;
    const OwnEvent last;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(module.Call("StartDetached", first.Get()));
    }
    ASSERT_TRUE(module.Call("StartDetached", last.Get()));
    module.Free();
    first.Set();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    last.Set();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

// The job has ended, and its worker is about to let the module go.
TEST(ModuleOfADetachedJob, IsLeftByTheWorkerBeforeAGroupOfTheModuleHasLeft) {
    const OwnEvent mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    HeldUnpin held;
    ASSERT_TRUE(module.Call("StartDetached", mayEnd.Get()));
    mayEnd.Set();
    held.AwaitCall();
    std::atomic<bool> hasLeft = false;
    Thread leaves([&] {
        wchar_t text[100]{};
        EXPECT_TRUE(module.Call("DescribeHeld", 1, text, 100));
        EXPECT_STREQ(text, L"nothing");
        hasLeft = true;
    });
    Sleep(100);
    EXPECT_FALSE(hasLeft);
    const auto letGo = std::chrono::steady_clock::now();
    held.LetGo();
    leaves.join();
    EXPECT_LT(std::chrono::steady_clock::now() - letGo, 20s);  // by a signal: without one it looks again after 30 s
    module.Free();
    EXPECT_FALSE(LeavingModule::IsLoaded());
}

// Of the program, as the module's job calls it: a callback that holds the thread of the limit.
struct HeldCallback {
    Gate begun;
    Gate mayEnd;
    Gate isAsked;
    Gate mayReturn;
    std::optional<std::stop_callback<void (*)()>> callback;
};
HeldCallback* g_heldCallback = nullptr;

void InstallHeldCallback() {
    g_heldCallback->callback.emplace(
        StopTokenOfThisJob(), +[] {
            g_heldCallback->isAsked.Open();
            g_heldCallback->mayReturn.Wait();
        });
    g_heldCallback->begun.Open();
    g_heldCallback->mayEnd.Wait();
}

TEST(ModuleOfAJobWithAHandle, IsUnloadedWhenTheJobAndTheHandleAreGoneThoughAThreadHasTheJobStill) {
    HeldCallback held;
    g_heldCallback = &held;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    ASSERT_TRUE(module.Call("StartAlone", &InstallHeldCallback));
    held.begun.Wait();
    ASSERT_TRUE(module.Call("LimitAlone"));
    held.isAsked.Wait();
    held.mayEnd.Open();
    ASSERT_TRUE(module.Call("DropAlone"));
    module.Free();
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
    held.mayReturn.Open();
}

TEST(ModuleOfAToken, IsWokenWhenItsCallbackHasEnded) {
    const OwnEvent begun;
    const OwnEvent isAsked;
    const OwnEvent mayReturn;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    auto job = Orvane::Run(
        L"job", [&] { return module.Call("DestroyCallbackThatRuns", begun.Get(), isAsked.Get(), mayReturn.Get()); });
    WaitForSingleObject(begun.Get(), INFINITE);
    const Thread asker([&job] { job.Cancel(); });
    WaitForSingleObject(isAsked.Get(), INFINITE);
    EXPECT_FALSE(job.WaitFor(50ms));
    mayReturn.Set();
    EXPECT_TRUE(job.WaitFor(60s));
    module.Free();
}

TEST(ModuleOfAToken, StaysLoadedUntilTheRunHasEnded) {
    Gate hasTaken;
    Gate mayEnd;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    auto job = Orvane::Run(L"job", [&] {
        EXPECT_TRUE(module.Call("TakeToken", 0));
        hasTaken.Open();
        mayEnd.Wait();
    });
    hasTaken.Wait();
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    job.Cancel();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayEnd.Open();
    job.Wait();
    EXPECT_FALSE(LeavingModule::IsLoaded());
}

// Of a run of the program: a callback that holds the thread that asks.
TEST(ModuleOfAToken, StaysLoadedUntilTheRequestHasReturned) {
    std::optional<std::stop_callback<std::function<void()>>> callback;
    Gate hasTaken;
    Gate mayEnd;
    Gate isAsked;
    Gate mayReturn;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    auto job = Orvane::Run(L"job", [&] {
        EXPECT_TRUE(module.Call("TakeToken", 0));
        callback.emplace(StopTokenOfThisJob(), [&] {
            isAsked.Open();
            mayReturn.Wait();
        });
        hasTaken.Open();
        mayEnd.Wait();
    });
    hasTaken.Wait();
    Thread asker([&job] { job.Cancel(); });
    isAsked.Wait();
    mayEnd.Open();
    job.Wait();
    module.Free();
    EXPECT_TRUE(LeavingModule::IsLoaded());
    mayReturn.Open();
    asker.join();
    EXPECT_FALSE(LeavingModule::IsLoaded());
    callback.reset();
}

TEST(ModuleOfAGroup, IsUnloadedAtOnceWhenTheGroupHasLeft) {
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 20; ++i) {
        const LeavingModule module;
        ASSERT_TRUE(module.Call("StartGroup", i % 6));
        ASSERT_TRUE(module.Call("LeaveGroup"));
        module.Free();
        ASSERT_FALSE(LeavingModule::IsLoaded());
    }
}

std::wstring WhatIsHeld(int what) {
    const LeavingModule module;
    wchar_t text[500]{};
    EXPECT_EQ(module.Call("DescribeHeld", what, text, 500), 1);
    module.Free();
    return text;
}

TEST(ModuleOfAGroup, IsToldWhatIsStillHeldOfIt) {
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(WhatIsHeld(0), L"1 result: the result of Import > Fetch 17");
    EXPECT_EQ(WhatIsHeld(1), L"nothing");
    EXPECT_EQ(WhatIsHeld(2), L"1 schedule: schedule other > daily");
    // In the job, as the group's first, in its list, and in the record for the iteration.
    EXPECT_EQ(WhatIsHeld(3), L"4 failures: the failure of other > fails");
    EXPECT_EQ(WhatIsHeld(4), L"1 callable, 1 job without a group: job alone");
    EXPECT_EQ(WhatIsHeld(5), L"1 result, 1 job without a group");
    EXPECT_EQ(WhatIsHeld(6), L"1 callable: job other > stays");
    EXPECT_TRUE(Eventually([] { return !LeavingModule::IsLoaded(); }));
}

// The group is the program's, and what it keeps can be destroyed by the module alone.
TEST(ModuleWhoseExceptionAGroupKeeps, IsTold) {
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    JobGroup group(L"of the program");
    const auto job = group.Run(L"calls", [&module] { module.Call("ThrowFailure", 0); });
    EXPECT_THROW(group.Wait(), std::exception);
    wchar_t text[500]{};
    ASSERT_TRUE(module.Call("DescribeHeld", 1, text, 500));
    EXPECT_STREQ(text, L"4 failures: the failure of of the program > calls");
    EXPECT_TRUE(group.Leave().IsNone());
    module.Free();
    EXPECT_FALSE(LeavingModule::IsLoaded());
}

// A limit, not a promise: the C++ runtime keeps the module for the destructor.
TEST(ModuleWithAThreadLocalObject, StaysLoadedUntilTheWorkerEnds) {
    {
        const ConcurrencyLifetime lifetime;
        const LeavingModule module;
        ASSERT_TRUE(module.Call("TouchThreadLocal"));
        module.Free();
        EXPECT_TRUE(LeavingModule::IsLoaded());
    }
    EXPECT_FALSE(LeavingModule::IsLoaded());
}

TEST(StaticGroupOfAModule, CannotLeaveWhileTheModuleIsUnloaded) {
    const ChildResult child = RunChild("leaving_module_test_child", {"leaves"});

    EXPECT_NE(child.standardError.find("a group cannot leave in a DllMain"), std::string::npos) << child.standardError;
}

}  // namespace
