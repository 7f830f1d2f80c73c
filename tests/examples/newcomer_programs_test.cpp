// The examples that a newcomer reads first, as a person runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;
using testing::HasSubstr;
using testing::StartsWith;

std::string OutputOf(const ChildResult& result) {
    std::string text = result.standardOutput;
    std::erase(text, '\r');
    return text;
}

TEST(TimeLimit, AValueInTimeIsPrinted) {
    const ChildResult result = RunChild("time_limit", {"0", "100000"});

    EXPECT_EQ(OutputOf(result), "The answer is 42.\n");
    EXPECT_EQ(result.exitCode, 0U);
}

TEST(TimeLimit, WorkThatTakesLongerIsEndedByItsLimit) {
    const ChildResult result = RunChild("time_limit", {"3600000", "50"});

    EXPECT_EQ(OutputOf(result), "The time is up.\n");
    EXPECT_EQ(result.exitCode, 1U);
}

TEST(TimeLimit, AFailureIsNoTimeOut) {
    const ChildResult result = RunChild("time_limit", {"soon", "100000"});

    EXPECT_THAT(OutputOf(result), StartsWith("The work has failed: stoul"));
    EXPECT_EQ(result.exitCode, 2U);
}

TEST(ParallelMap, SumsTheRootsOfAllItems) {
    const ChildResult result = RunChild("parallel_map");

    EXPECT_EQ(OutputOf(result), "The sum is 1878.342.\n");
    EXPECT_THAT(result.standardError, HasSubstr("0 waiting, 0 running, 200 done"));
    EXPECT_EQ(result.exitCode, 0U);
}

TEST(ParallelMap, TellsTheItemThatFailedAndEndsTheOthers) {
    const ChildResult result = RunChild("parallel_map", {"-1"});

    EXPECT_THAT(OutputOf(result), HasSubstr("Root of -1: a negative number has no root\n"));
    EXPECT_EQ(OutputOf(result).find("The sum"), std::string::npos);
    EXPECT_EQ(result.exitCode, 1U);
}

TEST(PluginHost, TakesItsPlugInOutEachTime) {
    const ChildResult result = RunChild("plugin_host", {"40"});

    EXPECT_THAT(OutputOf(result), StartsWith("Loaded and taken out 40 times: "));
    EXPECT_THAT(OutputOf(result), HasSubstr("Nothing was held."));
    EXPECT_EQ(result.exitCode, 0U);
}

TEST(FolderWatch, RefusesAFolderThatIsNotThere) {
    const ChildResult result = RunChild("folder_watch", {"Z:\\no\\such\\folder"});

    EXPECT_THAT(OutputOf(result), StartsWith("The folder cannot be watched: error "));
    EXPECT_EQ(result.exitCode, 1U);
}

}  // namespace
