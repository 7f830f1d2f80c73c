// Kernel mutexes.
#include <gtest/gtest.h>

#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/platform/own_name.h"
#include "tests/support/thread.h"

namespace {

using namespace Zarvo::Test;

DWORD WaitOnAnotherThread(HANDLE handle) {
    DWORD result = WAIT_FAILED;
    Thread([&] { result = WaitForSingleObject(handle, kNow); }).join();
    return result;
}

TEST(PlatformMutex, IsOwnedByOneThreadAsOftenAsItHasTakenIt) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_OBJECT_0);
    EXPECT_EQ(WaitOnAnotherThread(mutex), DWORD{WAIT_TIMEOUT});

    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(WaitOnAnotherThread(mutex), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    CloseHandle(mutex);
}

TEST(PlatformMutex, IsNotReleasedByAnotherThread) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    Thread([&] {
        EXPECT_FALSE(ReleaseMutex(mutex));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    }).join();

    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST(PlatformMutex, IsAbandonedToTheNextWhenItsOwnerEnds) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    Thread([&] { WaitForSingleObject(mutex, kNow); }).join();

    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST(PlatformMutex, AbandonmentEndsAWaitThatIsUnderWay) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    const HANDLE owned = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Thread owner([&] {
        WaitForSingleObject(mutex, kNow);
        SetEvent(owned);
    });
    WaitForSingleObject(owned, INFINITE);

    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_ABANDONED_0);
    owner.join();
    CloseHandle(owned);
    CloseHandle(mutex);
}

TEST(PlatformMutex, HasANameWhileItIsOpen) {
    const std::wstring name = OwnName(L"Global\\mutex");
    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, name.c_str());
    const HANDLE opened = OpenMutexW(SYNCHRONIZE, FALSE, name.c_str());
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(ReleaseMutex(opened));
    CloseHandle(mutex);
    CloseHandle(opened);

    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()), nullptr);
}

TEST(PlatformMutex, NameInAFolderIsNoPath) {
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, L"folder\\mutex"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST(PlatformMutex, NameOfAnEventIsAnInvalidHandle) {
    const std::wstring name = OwnName(L"taken");
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, name.c_str());

    EXPECT_EQ(CreateMutexW(nullptr, FALSE, name.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    CloseHandle(event);
}

}  // namespace
