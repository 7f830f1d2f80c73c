// A task that is emptied when the process ends.
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

TEST(TaskAtExit, IsEmptiedWhenTheLibrarysOwnStaticObjectsHaveGone) {
    const ChildResult child = RunChild("task_at_exit_whitebox_test_child");

    EXPECT_EQ(child.exitCode, 0U);
    EXPECT_EQ(child.standardOutput, "emptied");
}

}  // namespace
