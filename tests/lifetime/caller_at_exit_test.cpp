// A client that never uninitialises, whose end finds a caller inside a static pointer of the library.
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class CallerAtExit : public testing::TestWithParam<const char*> {};

TEST_P(CallerAtExit, DoesNotKeepTheProcessFromEnding) {
    const ChildResult child = RunChild("caller_at_exit_test_child", {GetParam()});

    EXPECT_EQ(child.exitCode, 7);
    EXPECT_EQ(child.standardOutput, "end of main");
    EXPECT_EQ(child.standardError, "");
}

INSTANTIATE_TEST_SUITE_P(InThe, CallerAtExit, testing::Values("pool", "scheduler"));

}  // namespace
