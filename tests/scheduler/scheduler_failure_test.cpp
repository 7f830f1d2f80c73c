// What fails on the scheduler's thread ends the process: there is nobody to tell.
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

TEST(SchedulerFailure, EndsTheProcessWhenThereIsNoPoolToHandATaskTo) {
    const ChildResult child = RunChild("scheduler_failure_test_child");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "Failed to spawn thread, resource error");
}

}  // namespace
