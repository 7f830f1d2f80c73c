#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <chrono>
#include <thread>

namespace {

constexpr DWORD kNow = 0;

// As many as one wait takes.
class HostWait : public testing::Test {
  protected:
    HostWait() {
        for (HANDLE& handle : m_handles) {
            handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        }
    }
    ~HostWait() override {
        for (const HANDLE handle : m_handles) {
            CloseHandle(handle);
        }
    }

    DWORD Wait(DWORD milliseconds) const {
        return WaitForMultipleObjects(m_handles.size(), m_handles.data(), FALSE, milliseconds);
    }

    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> m_handles{};
};

TEST_F(HostWait, TellsTheLowestIndexAndTakesOnlyThat) {
    SetEvent(m_handles[63]);
    SetEvent(m_handles[7]);

    EXPECT_EQ(Wait(kNow), WAIT_OBJECT_0 + 7);
    EXPECT_EQ(Wait(kNow), WAIT_OBJECT_0 + 63);
    EXPECT_EQ(Wait(kNow), DWORD{WAIT_TIMEOUT});
}

TEST_F(HostWait, IsWokenByAnyOfItsObjects) {
    std::thread waiter([&] { EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0 + 63); });
    SetEvent(m_handles[63]);
    waiter.join();
}

TEST_F(HostWait, TellsWhichMutexWasAbandoned) {
    CloseHandle(m_handles[5]);
    m_handles[5] = CreateMutexW(nullptr, FALSE, nullptr);
    std::thread([&] { WaitForSingleObject(m_handles[5], kNow); }).join();

    EXPECT_EQ(Wait(kNow), WAIT_ABANDONED_0 + 5);
}

TEST_F(HostWait, TimesOutNotBeforeItsTime) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait(30), DWORD{WAIT_TIMEOUT});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(HostWait, TooManyOrNoObjectsAreAnInvalidParameter) {
    for (const DWORD count : {DWORD{0}, DWORD{65}}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(WaitForMultipleObjects(count, m_handles.data(), FALSE, kNow), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    }
}

TEST_F(HostWait, InvalidHandleFailsTheWaitAndTakesNothing) {
    CloseHandle(m_handles[40]);
    SetEvent(m_handles[0]);

    EXPECT_EQ(Wait(kNow), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(WaitForSingleObject(m_handles[0], kNow), WAIT_OBJECT_0);
}

TEST_F(HostWait, ObjectClosedMeanwhileStaysAliveForTheWait) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, 20); });
    CloseHandle(event);
    waiter.join();

    // Closed before the wait began, or during it.
    EXPECT_TRUE(result == WAIT_FAILED || result == WAIT_TIMEOUT);
}

}  // namespace
