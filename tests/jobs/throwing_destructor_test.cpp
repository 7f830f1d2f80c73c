// Destructors of what a job keeps that throw.
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class ThrowingDestructor : public testing::TestWithParam<const char*> {};

TEST_P(ThrowingDestructor, EndsTheProcess) {
    const ChildResult child = RunChild("throwing_destructor_test_child", {GetParam()});

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "it throws");
}

INSTANTIATE_TEST_SUITE_P(Of, ThrowingDestructor,
                         testing::Values("a callable", "a result that was taken", "a result that was not read",
                                         "a result that nobody reads"));

}  // namespace
