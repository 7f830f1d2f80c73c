#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

std::string WithoutCarriageReturns(std::string text) {
    std::erase(text, '\r');
    return text;
}

TEST(CancelSleep, ReadsAValueAndEndsLongBeforeTheNap) {
    const ChildResult result = RunChild("cancel_sleep");

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(WithoutCarriageReturns(result.standardOutput), "The sum is 42, and the nap of an hour is cut short.\n");
}

}  // namespace
