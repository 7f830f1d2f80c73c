// Memory runs out on a thread of the library: there is nobody to tell, and the process ends.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

// What the main thread does to have a task run on the thread in question.
class LibraryThreadWithoutMemory : public testing::TestWithParam<const char*> {};

TEST_P(LibraryThreadWithoutMemory, EndsTheProcess) {
    int ended = 0;
    for (int number = 1; !HasFailure(); ++number) {
        const ChildResult child =
            RunChild("library_threads_without_memory_test_child", {GetParam(), std::to_string(number)});
        if (child.standardOutput.starts_with("never asked for")) {
            break;
        }
        if (!child.standardOutput.starts_with("done without")) {
            EXPECT_EQ(child.exitCode, kTerminated) << number;
            EXPECT_EQ(child.standardOutput, "std::bad_alloc") << number;
            ++ended;
        }
    }
    EXPECT_GT(ended, 0);
}

INSTANTIATE_TEST_SUITE_P(To, LibraryThreadWithoutMemory, testing::Values("queue", "fail", "launch", "insert"));

}  // namespace
