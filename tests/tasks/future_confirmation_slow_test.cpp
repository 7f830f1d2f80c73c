// The 30 s that a run has to confirm its cancellation, in real time.
#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(UnresponsiveRunSlow, EndsTheProcessAfter30Seconds) {
    const ChildResult result = RunChild("future_confirmation_test_child", {"FutureState::Wait", "in real time"});

    EXPECT_EQ(result.exitCode, kTerminated);
    EXPECT_EQ(result.standardOutput, "terminate handler");
    EXPECT_GE(result.elapsed, 30s);
}

}  // namespace
