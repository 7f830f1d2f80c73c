#include "concurrency/base/native_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/support/child_process.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/resource_probe.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Every start is asked for with the default stack size and without flags.
std::uintptr_t RefuseToStart(void* security, unsigned stackSize, unsigned(__stdcall*)(void*), void*, unsigned flags,
                             unsigned*) {
    EXPECT_EQ(security, nullptr);
    EXPECT_EQ(stackSize, 0U);
    EXPECT_EQ(flags, 0U);
    errno = EAGAIN;
    return 0;
}

// The error code of what `action` throws.
template <typename Action>
std::error_code ErrorOf(Action action) {
    try {
        action();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

TEST(NativeThread, WithoutAThreadIsNotJoinable) {
    const NativeThread none;

    EXPECT_FALSE(none.IsJoinable());
    EXPECT_FALSE(none.IsCurrentThread());
    EXPECT_EQ(none.GetHandle(), nullptr);
    EXPECT_EQ(none.GetId(), 0U);
}

TEST(NativeThread, CallsTheBodyOnceOnTheThreadThatTheRecordNames) {
    std::atomic<int> calls = 0;
    std::atomic<DWORD> id = 0;
    NativeThread thread = NativeThread::Start([&] {
        ++calls;
        id = ::GetCurrentThreadId();
    });
    EXPECT_TRUE(thread.IsJoinable());
    EXPECT_EQ(::GetThreadId(thread.GetHandle()), thread.GetId());
    const DWORD named = thread.GetId();
    thread.Join();

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(id, named);
    EXPECT_NE(named, ::GetCurrentThreadId());
}

TEST(NativeThread, DestroysTheBodyBeforeItEnds) {
    auto bound = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = bound;
    NativeThread thread = NativeThread::Start([bound = std::move(bound)] {});
    thread.Join();

    EXPECT_TRUE(watched.expired());
}

TEST(NativeThread, TakesABodyThatCanOnlyBeMoved) {
    std::atomic<int> seen = 0;
    NativeThread thread = NativeThread::Start([&seen, value = std::make_unique<int>(7)] { seen = *value; });
    thread.Join();

    EXPECT_EQ(seen, 7);
}

TEST(NativeThread, JoinWaitsForTheEnd) {
    Gate gate;
    std::atomic<bool> ended = false;
    NativeThread thread = NativeThread::Start([&] {
        gate.Wait();
        ended = true;
    });
    EXPECT_EQ(WaitForSingleObject(thread.GetHandle(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    gate.Open();
    thread.Join();

    EXPECT_TRUE(ended);
    EXPECT_FALSE(thread.IsJoinable());
}

TEST(NativeThread, JoiningTwiceIsRefused) {
    NativeThread thread = NativeThread::Start([] {});
    thread.Join();

    EXPECT_EQ(ErrorOf([&] { thread.Join(); }), std::errc::no_such_process);
}

TEST(NativeThread, JoiningNoThreadIsRefused) {
    NativeThread none;

    EXPECT_EQ(ErrorOf([&] { none.Join(); }), std::errc::no_such_process);
}

TEST(NativeThread, JoiningItselfIsRefused) {
    Gate started;
    std::error_code error;
    bool isCurrent = false;
    NativeThread thread;
    thread = NativeThread::Start([&] {
        started.Wait();
        isCurrent = thread.IsCurrentThread();
        error = ErrorOf([&] { thread.Join(); });
    });
    EXPECT_FALSE(thread.IsCurrentThread());
    started.Open();
    thread.Join();

    EXPECT_TRUE(isCurrent);
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
}

TEST(NativeThread, MovingPassesTheThreadOn) {
    Gate gate;
    NativeThread first = NativeThread::Start([&] { gate.Wait(); });
    const DWORD id = first.GetId();
    NativeThread second = std::move(first);

    EXPECT_EQ(first.GetId(), 0U);
    EXPECT_FALSE(first.IsJoinable());  // NOLINT(bugprone-use-after-move): that is the question
    EXPECT_EQ(second.GetId(), id);
    EXPECT_TRUE(second.IsJoinable());

    NativeThread third;
    third = std::move(second);
    EXPECT_EQ(third.GetId(), id);
    gate.Open();
    third.Join();
}

TEST(NativeThread, LettingGoOfTheRecordDoesNotWaitForTheThread) {
    Gate gate;
    Gate ended;
    {
        const NativeThread thread = NativeThread::Start([&] {
            gate.Wait();
            ended.Open();
        });
    }
    EXPECT_FALSE(ended.IsOpen());
    gate.Open();
    ended.Wait();
}

TEST(NativeThread, EndsWithinATimeOrNot) {
    Gate gate;
    NativeThread thread = NativeThread::Start([&] { gate.Wait(); });
    EXPECT_FALSE(thread.EndsWithin(std::chrono::milliseconds(10)));
    gate.Open();
    EXPECT_TRUE(thread.EndsWithin(std::chrono::minutes(1)));
    thread.Join();
    EXPECT_TRUE(thread.EndsWithin(std::chrono::milliseconds(10)));  // joining it tells that there is none
}

TEST(NativeThread, FailureToStartIsASystemErrorAndCallsNothing) {
    auto bound = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = bound;
    std::atomic<int> calls = 0;
    const ImportPatch patch(LibraryUnderTest(), "_beginthreadex", &RefuseToStart);

    EXPECT_EQ(ErrorOf([&] { NativeThread::Start([&calls, bound = std::move(bound)] { ++calls; }); }),
              std::errc::resource_unavailable_try_again);
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(watched.expired());
}

TEST(NativeThread, GivesBackWhatItTook) {
    const auto use = [] {
        NativeThread::Start([bound = std::make_shared<int>(0)] {}).Join();
        NativeThread::Start([bound = std::make_shared<int>(0)] {});  // a record that is not joined
    };
    EXPECT_EQ(GrowthOver(50, use), Resources{});
}

TEST(NativeThread, ExceptionThatLeavesTheBodyEndsTheProcess) {
    const ChildResult result = RunChild("native_thread_whitebox_test_child");

    EXPECT_EQ(result.exitCode, kTerminated);
    EXPECT_EQ(result.standardOutput, "terminate handler");
}

}  // namespace
