// What the stand-in does and the platform does not.
#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(HostHandle, IsNotGivenOutAgain) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(event);
    const HANDLE next = CreateEventW(nullptr, FALSE, FALSE, nullptr);

    EXPECT_NE(next, event);
    CloseHandle(next);
}

}  // namespace
