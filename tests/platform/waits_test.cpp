// Waits for handles.
#include <gtest/gtest.h>

#include <array>
#include <chrono>

#include "concurrency/base/windows_api.h"
#include "tests/platform/own_name.h"
#include "tests/support/stopwatch.h"
#include "tests/support/thread.h"

namespace {

using namespace Zarvo::Test;

// As many as one wait takes.
class PlatformWait : public testing::Test {
  protected:
    PlatformWait() {
        for (HANDLE& handle : m_handles) {
            handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        }
    }
    ~PlatformWait() override {
        for (const HANDLE handle : m_handles) {
            CloseHandle(handle);
        }
    }

    DWORD Wait(DWORD milliseconds) const {
        return WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, m_handles.data(), FALSE, milliseconds);
    }

    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> m_handles{};
};

TEST_F(PlatformWait, TellsTheLowestIndexAndTakesOnlyThat) {
    SetEvent(m_handles[63]);
    SetEvent(m_handles[7]);

    EXPECT_EQ(Wait(kNow), WAIT_OBJECT_0 + 7);
    EXPECT_EQ(Wait(kNow), WAIT_OBJECT_0 + 63);
    EXPECT_EQ(Wait(kNow), DWORD{WAIT_TIMEOUT});
}

TEST_F(PlatformWait, IsWokenByAnyOfItsObjects) {
    Thread waiter([&] { EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0 + 63); });
    SetEvent(m_handles[63]);
    waiter.join();
}

TEST_F(PlatformWait, TellsWhichMutexWasAbandoned) {
    CloseHandle(m_handles[5]);
    m_handles[5] = CreateMutexW(nullptr, FALSE, nullptr);
    Thread([&] { WaitForSingleObject(m_handles[5], kNow); }).join();

    EXPECT_EQ(Wait(kNow), WAIT_ABANDONED_0 + 5);
}

TEST_F(PlatformWait, TimesOutNotBeforeItsTime) {
    const Stopwatch stopwatch;
    EXPECT_EQ(Wait(30), DWORD{WAIT_TIMEOUT});
    EXPECT_GE(stopwatch.Elapsed(), std::chrono::milliseconds(30));
}

TEST_F(PlatformWait, TooManyOrNoObjectsAreAnInvalidParameter) {
    for (const DWORD count : {DWORD{0}, DWORD{65}}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(WaitForMultipleObjects(count, m_handles.data(), FALSE, kNow), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    }
}

TEST_F(PlatformWait, InvalidHandleFailsTheWaitAndTakesNothing) {
    CloseHandle(m_handles[40]);
    SetEvent(m_handles[0]);

    EXPECT_EQ(Wait(kNow), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(WaitForSingleObject(m_handles[0], kNow), WAIT_OBJECT_0);
}

TEST_F(PlatformWait, ObjectClosedMeanwhileStaysAliveForTheWait) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    Thread waiter([&] { result = WaitForSingleObject(event, 20); });
    CloseHandle(event);
    waiter.join();

    // Closed before the wait began, or during it.
    EXPECT_TRUE(result == WAIT_FAILED || result == WAIT_TIMEOUT);
}

}  // namespace
