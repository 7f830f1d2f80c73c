// Threading policies: what the thread is during a run, and afterwards.
#include "concurrency/tasks/policies.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/import_patch.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/future_fixture.h"

// After windows.h, which it needs.
#include <objbase.h>

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

static_assert(std::is_empty_v<ComPolicyMTA> && std::is_empty_v<NullPolicy> && std::is_empty_v<LoggingPolicyNull>);

struct ComCalls {
    HRESULT answer = S_OK;
    int initialized = 0;
    int uninitialized = 0;
    void* reserved = nullptr;
    DWORD model = ~0UL;
};

ComCalls g_calls;

HRESULT WINAPI NoteInitialize(void* reserved, DWORD model) {
    ++g_calls.initialized;
    g_calls.reserved = reserved;
    g_calls.model = model;
    return g_calls.answer;
}

void WINAPI NoteUninitialize() {
    ++g_calls.uninitialized;
}

// The library's calls into COM, answered here.
class ComPolicyMTATest : public testing::Test {
  protected:
    ComPolicyMTATest()
        : m_initialize(LibraryUnderTest(), "CoInitializeEx", &NoteInitialize),
          m_uninitialize(LibraryUnderTest(), "CoUninitialize", &NoteUninitialize) {
        g_calls = {};
    }

    template <typename Callable>
    FuturePointer Run(Callable callable) {
        FuturePointer future;
        Task task = MakeTask<ComPolicyMTA>(L"", callable, future);
        task();
        return future;
    }

  private:
    ImportPatch m_initialize;
    ImportPatch m_uninitialize;
};

TEST_F(ComPolicyMTATest, AsksForTheMultithreadedApartmentAroundTheCall) {
    int uninitializedDuringTheCall = -1;
    Run([&] { uninitializedDuringTheCall = g_calls.uninitialized; });

    EXPECT_EQ(g_calls.initialized, 1);
    EXPECT_EQ(g_calls.reserved, nullptr);
    EXPECT_EQ(g_calls.model, static_cast<DWORD>(COINIT_MULTITHREADED));
    EXPECT_EQ(uninitializedDuringTheCall, 0);
    EXPECT_EQ(g_calls.uninitialized, 1);
}

TEST_F(ComPolicyMTATest, PairsEverySuccess) {
    for (const HRESULT answer : {S_OK, S_FALSE, static_cast<HRESULT>(7)}) {
        g_calls = {};
        g_calls.answer = answer;
        Run([] {});

        EXPECT_EQ(g_calls.initialized, 1);
        EXPECT_EQ(g_calls.uninitialized, 1) << answer;
    }
}

TEST_F(ComPolicyMTATest, FailureLetsTheRunProceedAndIsNotPaired) {
    for (const HRESULT answer : {static_cast<HRESULT>(RPC_E_CHANGED_MODE), E_OUTOFMEMORY, E_UNEXPECTED}) {
        g_calls = {};
        g_calls.answer = answer;
        int calls = 0;
        const FuturePointer future = Run([&] { ++calls; });

        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(future->IsNormal());
        EXPECT_EQ(g_calls.initialized, 1);
        EXPECT_EQ(g_calls.uninitialized, 0);
    }
}

TEST_F(ComPolicyMTATest, PairsForARunThatIsRefused) {
    int calls = 0;
    FuturePointer future;
    Task task = MakeTask<ComPolicyMTA>(L"", [&] { ++calls; }, future);
    future->RequestCancel();
    (*task.GetWrapper())();

    EXPECT_EQ(calls, 0);
    EXPECT_EQ(g_calls.initialized, 1);
    EXPECT_EQ(g_calls.uninitialized, 1);
}

TEST_F(ComPolicyMTATest, PairsOnEveryPathOutOfARun) {
    Run([] { throw CancelRequestedException(); });
    EXPECT_EQ(g_calls.uninitialized, 1);
    Run([] { throw Unexpected(L"framework error"); });
    EXPECT_EQ(g_calls.uninitialized, 2);
    Run([] { throw Failure(1); });
    EXPECT_EQ(g_calls.uninitialized, 3);
    EXPECT_THROW(Run([] { throw std::runtime_error("anything else"); }), std::runtime_error);
    EXPECT_EQ(g_calls.uninitialized, 4);
    EXPECT_EQ(g_calls.initialized, 4);
}

TEST_F(ComPolicyMTATest, NullPolicyLeavesComAlone) {
    MakeTask<NullPolicy>(L"", [] {})();
    MakeTask(L"", [] {})();

    EXPECT_EQ(g_calls.initialized, 0);
    EXPECT_EQ(g_calls.uninitialized, 0);
}

// With the platform's own COM. The kind of the calling thread's apartment; -1 for none.
int Apartment() {
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    return SUCCEEDED(CoGetApartmentType(&type, &qualifier)) ? static_cast<int>(type) : -1;
}

TEST(ComPolicyMTA, TheThreadIsInTheApartmentDuringTheRunOnly) {
    int during = -2;
    int after = -2;
    PlainThread([&] {
        MakeTask<ComPolicyMTA>(L"", [&] { during = Apartment(); })();
        after = Apartment();
    }).Join();

    EXPECT_EQ(during, static_cast<int>(APTTYPE_MTA));
    EXPECT_EQ(after, -1);
}

TEST(ComPolicyMTA, ThreadOfASingleThreadedApartmentStaysInIt) {
    int during = -2;
    int after = -2;
    PlainThread([&] {
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        MakeTask<ComPolicyMTA>(L"", [&] { during = Apartment(); })();
        after = Apartment();
        CoUninitialize();
        EXPECT_EQ(Apartment(), -1) << "the run took a reference that it did not give back";
    }).Join();

    EXPECT_NE(during, static_cast<int>(APTTYPE_MTA));
    EXPECT_GE(during, 0);
    EXPECT_EQ(after, during);
}

}  // namespace
