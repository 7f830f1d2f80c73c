// The library's own declarations of the platform's types must be the platform's, whichever header comes first.
#include "concurrency/base/win32.h"

using OwnDword = DWORD;
using OwnHandle = HANDLE;

// Second on purpose.
#include "concurrency/base/windows_api.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

static_assert(std::is_same_v<OwnDword, DWORD>);
static_assert(std::is_same_v<OwnHandle, HANDLE>);

TEST(Win32, TypesFitThePlatformsFunctions) {
    const OwnDword thread = ::GetCurrentThreadId();
    const OwnHandle process = ::GetCurrentProcess();

    EXPECT_NE(thread, 0U);
    EXPECT_EQ(::GetProcessId(process), ::GetCurrentProcessId());
}

}  // namespace
