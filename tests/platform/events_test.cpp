// Events and handles.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "tests/platform/own_name.h"
#include "tests/support/thread.h"

namespace {

using namespace Zarvo::Test;

TEST(PlatformEvent, AutoResetEventEndsOneWait) {
    const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);

    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, kNow), DWORD{WAIT_TIMEOUT});
    CloseHandle(event);
}

TEST(PlatformEvent, ManualResetEventEndsEveryWaitUntilItIsReset) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetEvent(event);

    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    ResetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, kNow), DWORD{WAIT_TIMEOUT});
    CloseHandle(event);
}

TEST(PlatformEvent, WakesAThreadThatWaits) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    Thread waiter([&] { result = WaitForSingleObject(event, INFINITE); });
    SetEvent(event);
    waiter.join();

    EXPECT_EQ(result, WAIT_OBJECT_0);
    CloseHandle(event);
}

TEST(PlatformEvent, OneSignalOfAnAutoResetEventEndsOnlyOneOfTwoWaits) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Thread first([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    Thread second([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    SetEvent(event);
    while (WaitForSingleObject(event, kNow) == WAIT_OBJECT_0) {
        SetEvent(event);  // nobody has taken it yet
        std::this_thread::yield();
    }
    SetEvent(event);
    first.join();
    second.join();

    EXPECT_EQ(WaitForSingleObject(event, kNow), DWORD{WAIT_TIMEOUT});
    CloseHandle(event);
}

TEST(PlatformEvent, NameOpensTheSameEventOnce) {
    const std::wstring name = OwnName(L"Local\\event");
    SetLastError(ERROR_SUCCESS);
    const HANDLE first = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    const HANDLE second = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_NE(first, second);
    SetEvent(second);

    EXPECT_EQ(WaitForSingleObject(first, kNow), WAIT_OBJECT_0);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(PlatformEvent, WhatIsNoEventIsAnInvalidHandle) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    for (const HANDLE handle : {HANDLE{nullptr}, mutex}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(SetEvent(handle));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    }
    CloseHandle(mutex);
}

TEST(PlatformHandle, IsInvalidOnceClosed) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_TRUE(CloseHandle(event));

    EXPECT_FALSE(CloseHandle(event));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(PlatformHandle, CopyKeepsTheObject) {
    const HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    HANDLE copy = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    CloseHandle(event);

    EXPECT_EQ(WaitForSingleObject(copy, kNow), WAIT_OBJECT_0);
    CloseHandle(copy);
}

}  // namespace
