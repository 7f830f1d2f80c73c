// The counts are proven in resource_probe_test.cpp.
#include "tests/support/allocations.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <thread>

#include "concurrency/cancellation/handle_notification_adapter.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {
namespace {

using Orvane::Internal::HandleNotificationAdapter;

TEST(NoMemory, MakesNewFailInThisProgram) {
    const NoMemory none;

    EXPECT_THROW(std::make_unique<char[]>(100), std::bad_alloc);
}

TEST(NoMemory, MakesNewFailInTheLibrary) {
    const NoMemory none;

    EXPECT_THROW(HandleNotificationAdapter::CreateInstance(), std::bad_alloc);
}

TEST(NoMemory, EndsWithItsScope) {
    {
        const NoMemory none;
    }

    EXPECT_NE(std::make_unique<char[]>(100), nullptr);
}

TEST(NoMemory, LeavesOtherThreadsAlone) {
    bool made = false;
    Gate withheld;
    std::thread other([&] {
        withheld.Wait();
        made = std::make_unique<char[]>(100) != nullptr;
    });
    {
        const NoMemory none;
        withheld.Open();
        other.join();
    }
    EXPECT_TRUE(made);
}

}  // namespace
}  // namespace Zarvo::Test
