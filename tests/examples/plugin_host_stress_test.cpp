// The plug-in host for as long as a program may run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

TEST(PluginHost, TakesItsPlugInOutTenThousandTimes) {
    // Without a log: three million lines would be most of the work.
    const ChildResult result = RunChild("plugin_host", {"10000"}, {{"ZARVO_LOG", "none"}}, std::chrono::minutes(9));

    EXPECT_THAT(result.standardOutput, testing::StartsWith("Loaded and taken out 10000 times: "));
    EXPECT_EQ(result.exitCode, 0U);
}

}  // namespace
