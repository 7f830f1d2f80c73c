// A job that a static object owns, of a program and of a DLL, when the process ends.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class StaticJob : public testing::TestWithParam<const char*> {};

TEST_P(StaticJob, EndsWithTheProcess) {
    const ChildResult child = RunChild("static_job_test_child", {GetParam()});

    EXPECT_EQ(child.exitCode, 0U) << child.standardError;
    EXPECT_EQ(child.standardOutput, std::string(GetParam()) + " done");
}

INSTANTIATE_TEST_SUITE_P(Of, StaticJob,
                         testing::Values("program, ended", "program, running", "program, running, never uninitialised",
                                         "DLL, ended", "DLL, running", "DLL, running, never uninitialised",
                                         "DLL, running, unloaded"));

}  // namespace
