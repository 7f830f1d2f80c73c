// What the order check of checked builds allows, and how it ends a process.
#include <gtest/gtest.h>

#include <mutex>
#include <string>

#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/windows_api.h"
#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class LockOrder : public testing::Test {
  protected:
    void SetUp() override {
#ifndef ORVANE_CHECK_LOCK_ORDER
        GTEST_SKIP() << "not a checked build";
#endif
    }

    static ChildResult Take(const char* order) { return RunChild("lock_order_whitebox_test_child", {order}); }

    static void ExpectRefused(const char* order) {
        const ChildResult child = Take(order);
        EXPECT_EQ(child.exitCode, kTerminated);
        EXPECT_NE(child.standardError.find("lock order violated"), std::string::npos) << child.standardError;
    }
};

TEST_F(LockOrder, MayAscendAndGoFromOneFutureToAnother) {
    EXPECT_EQ(Take("Ascending").exitCode, 0U);
}

TEST_F(LockOrder, MayNotDescend) {
    ExpectRefused("Descending");
}

TEST_F(LockOrder, MayNotHaveTwoOfOneRank) {
    ExpectRefused("TwoOfOneRank");
}

TEST_F(LockOrder, ConcernsAllThatAreHeldNotTheNewestOnly) {
    ExpectRefused("BelowAnOlderOne");
}

// Locks live where it is handed on.
TEST_F(LockOrder, LeavesTheLastErrorAsItWas) {
    using namespace Orvane::Internal;
    RankedMutex<std::recursive_mutex, LockRank::Task> mutex;
    SetLastError(4711);
    {
        const RankedLock lock(mutex);
    }
    EXPECT_EQ(GetLastError(), 4711U);
}

TEST_F(LockOrder, IsNotConcernedByOneMoreLevel) {
    EXPECT_EQ(Take("OneMoreLevel").exitCode, 0U);
}

TEST_F(LockOrder, ForgetsWhatWasGivenBack) {
    EXPECT_EQ(Take("AfterGivingBack").exitCode, 0U);
}

TEST_F(LockOrder, IsLookedAtWhenAGuardTakesItsMutexAgain) {
    ExpectRefused("TakenAgainInTheWrongOrder");
}

TEST_F(LockOrder, HoldsForCriticalSectionsToo) {
    ExpectRefused("CriticalSectionAfterATask");
}

TEST_F(LockOrder, ViolationNamesBothPlaces) {
    const std::string text = Take("Descending").standardError;
    const std::size_t held = text.find("held:");
    const std::size_t wanted = text.find("to take:");
    ASSERT_NE(held, std::string::npos) << text;
    ASSERT_NE(wanted, std::string::npos) << text;
    EXPECT_NE(text.find("lock_order_whitebox_test_child.cpp:", held), std::string::npos) << text;
    EXPECT_NE(text.find("lock_order_whitebox_test_child.cpp:", wanted), std::string::npos) << text;
}

}  // namespace
