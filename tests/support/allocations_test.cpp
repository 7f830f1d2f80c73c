// The counts are proven in resource_probe_test.cpp.
#include "tests/support/allocations.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "concurrency/cancellation/handle_notification_adapter.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {
namespace {

using Orvane::Internal::HandleNotificationAdapter;

TEST(NoMemory, MakesNewFailInThisProgram) {
    const NoMemory none;

    EXPECT_THROW(std::make_unique<char[]>(100), std::bad_alloc);
}

TEST(NoMemory, MakesNewFailInTheLibrary) {
    const NoMemory none;

    EXPECT_THROW(static_cast<void>(HandleNotificationAdapter::CreateInstance()), std::bad_alloc);
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
    Thread other([&] {
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

// Three blocks; how many of them came.
int CountOfThree() {
    int came = 0;
    for (int i = 0; i < 3; ++i) {
        try {
            came += std::make_unique<char[]>(100) != nullptr ? 1 : 0;
        } catch (const std::bad_alloc&) {
        }
    }
    return came;
}

TEST(FailingNew, FailsOnceAndOnlyAtItsNumber) {
    const FailingNew third(3);
    const auto first = std::make_unique<char[]>(100);
    const auto second = std::make_unique<char[]>(100);
    EXPECT_FALSE(third.HasFailed());
    EXPECT_THROW(std::make_unique<char[]>(100), std::bad_alloc);
    EXPECT_TRUE(third.HasFailed());

    EXPECT_EQ(CountOfThree(), 3);
}

TEST(FailingNew, FailsInTheLibrary) {
    const FailingNew first(1);

    EXPECT_THROW(static_cast<void>(HandleNotificationAdapter::CreateInstance()), std::bad_alloc);
}

// Where the memory comes from is the runtime's business: strings are made inside of it.
TEST(FailingNew, FailsInTheRuntime) {
    const std::string text(100, 'x');
    const FailingNew first(1);

    EXPECT_THROW({ const std::string copy(text); }, std::bad_alloc);
}

TEST(FailingNew, ConcernsOneThreadOrAllOthers) {
    for (const AskedBy askedBy : {AskedBy::ThisThread, AskedBy::OtherThreads}) {
        const bool here = askedBy == AskedBy::ThisThread;
        int elsewhere = 0;
        Gate armed;
        Thread other([&] {
            armed.Wait();
            elsewhere = CountOfThree();
        });
        {
            const FailingNew second(2, askedBy);
            armed.Open();
            other.join();
            EXPECT_EQ(elsewhere, here ? 3 : 2);
            EXPECT_EQ(CountOfThree(), here ? 2 : 3);
        }
    }
}

}  // namespace
}  // namespace Zarvo::Test
