#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <thread>

namespace {

constexpr DWORD kNow = 0;

DWORD WaitOnAnotherThread(HANDLE handle) {
    DWORD result = WAIT_FAILED;
    std::thread([&] { result = WaitForSingleObject(handle, kNow); }).join();
    return result;
}

TEST(HostMutex, IsOwnedByOneThreadAsOftenAsItHasTakenIt) {
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

TEST(HostMutex, IsNotReleasedByAnotherThread) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    std::thread([&] {
        EXPECT_FALSE(ReleaseMutex(mutex));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    }).join();

    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST(HostMutex, IsAbandonedToTheNextWhenItsOwnerEnds) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    std::thread([&] { WaitForSingleObject(mutex, kNow); }).join();

    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST(HostMutex, AbandonmentEndsAWaitThatIsUnderWay) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    const HANDLE owned = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::thread owner([&] {
        WaitForSingleObject(mutex, kNow);
        SetEvent(owned);
    });
    WaitForSingleObject(owned, INFINITE);

    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_ABANDONED_0);
    owner.join();
    CloseHandle(owned);
    CloseHandle(mutex);
}

TEST(HostMutex, HasANameWhileItIsOpen) {
    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, L"Global\\mutex"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Global\\mutex");
    const HANDLE opened = OpenMutexW(SYNCHRONIZE, FALSE, L"Global\\mutex");
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(ReleaseMutex(opened));
    CloseHandle(mutex);
    CloseHandle(opened);

    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, L"Global\\mutex"), nullptr);
}

TEST(HostMutex, NameInAFolderIsNoPath) {
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, L"folder\\mutex"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST(HostMutex, LongNameIsRefused) {
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, std::wstring(MAX_PATH + 1, L'm').c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILENAME_EXCED_RANGE});
}

TEST(HostMutex, NameOfAnEventIsAnInvalidHandle) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, L"taken");

    EXPECT_EQ(CreateMutexW(nullptr, FALSE, L"taken"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    CloseHandle(event);
}

}  // namespace
