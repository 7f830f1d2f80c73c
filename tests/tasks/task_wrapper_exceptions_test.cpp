// An exception that no future can keep: on a thread of the library it ends the process.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class UncaughtExceptionTest : public testing::TestWithParam<const char*> {};

TEST_P(UncaughtExceptionTest, EndsTheProcessAndTheStartIsItsLastRecord) {
    const ChildResult result = RunChild("task_wrapper_exceptions_test_child", {GetParam()});

    EXPECT_EQ(result.exitCode, kTerminated);
    EXPECT_EQ(result.standardOutput, "terminate handler");
    EXPECT_NE(result.LastRecord().find("[Concurrency.Task] Task [fails] started in thread ["), std::string::npos)
        << result.LastRecord();
}

INSTANTIATE_TEST_SUITE_P(Threads, UncaughtExceptionTest, testing::Values("pool", "dedicated"));

TEST(UncaughtException, OfATaskThatIsRunInlineReachesTheCaller) {
    const ChildResult result = RunChild("task_wrapper_exceptions_test_child", {"inline"});

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.standardOutput, "caught");
}

TEST(KnownException, OnAThreadOfTheLibraryStaysInItsFuture) {
    for (const char* const thread : {"pool", "dedicated"}) {
        const ChildResult result = RunChild("task_wrapper_exceptions_test_child", {thread, "known"});

        EXPECT_EQ(result.exitCode, 0U) << thread;
        EXPECT_EQ(result.standardOutput, "in the future") << thread;
    }
}

}  // namespace
