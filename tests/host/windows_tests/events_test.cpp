#include <gtest/gtest.h>
#include <windows.h>

#include <thread>

namespace {

constexpr DWORD kNow = 0;

TEST(HostEvent, AutoResetEventEndsOneWait) {
    const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);

    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, kNow), DWORD{WAIT_TIMEOUT});
    CloseHandle(event);
}

TEST(HostEvent, ManualResetEventEndsEveryWaitUntilItIsReset) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetEvent(event);

    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, kNow), WAIT_OBJECT_0);
    ResetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, kNow), DWORD{WAIT_TIMEOUT});
    CloseHandle(event);
}

TEST(HostEvent, WakesAThreadThatWaits) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, INFINITE); });
    SetEvent(event);
    waiter.join();

    EXPECT_EQ(result, WAIT_OBJECT_0);
    CloseHandle(event);
}

TEST(HostEvent, OneSignalOfAnAutoResetEventEndsOnlyOneOfTwoWaits) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::thread first([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    std::thread second([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
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

TEST(HostEvent, NameOpensTheSameEventOnce) {
    const HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"Local\\event");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    const HANDLE second = CreateEventW(nullptr, TRUE, FALSE, L"Local\\event");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_NE(first, second);
    SetEvent(second);

    EXPECT_EQ(WaitForSingleObject(first, kNow), WAIT_OBJECT_0);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(HostEvent, WhatIsNoEventIsAnInvalidHandle) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    for (const HANDLE handle : {HANDLE{nullptr}, mutex}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(SetEvent(handle));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    }
    CloseHandle(mutex);
}

TEST(HostHandle, IsInvalidOnceClosedAndIsNotGivenOutAgain) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_TRUE(CloseHandle(event));

    EXPECT_FALSE(CloseHandle(event));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    const HANDLE next = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_NE(next, event);
    CloseHandle(next);
}

TEST(HostHandle, CopyKeepsTheObject) {
    const HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    HANDLE copy = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    CloseHandle(event);

    EXPECT_EQ(WaitForSingleObject(copy, kNow), WAIT_OBJECT_0);
    CloseHandle(copy);
}

}  // namespace
