#include "tests/support/child_process.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Zarvo::Test {
namespace {

using namespace std::chrono_literals;

const char* const kChild = "child_process_test_child";

TEST(RunChild, ReturnsTheExitCode) {
    EXPECT_EQ(RunChild(kChild, {"exit", "0"}).exitCode, 0U);
    EXPECT_EQ(RunChild(kChild, {"exit", "77"}).exitCode, 77U);
}

TEST(RunChild, TellsATerminatedProcessByItsExitCode) {
    EXPECT_EQ(RunChild(kChild, {"terminate"}).exitCode, kTerminated);
    EXPECT_EQ(RunChild(kChild, {"abort"}).exitCode, kTerminated);
}

TEST(RunChild, KeepsBothStreamsApart) {
    const ChildResult result = RunChild(kChild, {"print"});

    EXPECT_EQ(result.standardOutput, "to the output");
    EXPECT_EQ(result.standardError, "to the error stream");
}

TEST(RunChild, KeepsALongOutputWhole) {
    EXPECT_EQ(RunChild(kChild, {"print much"}).standardOutput, std::string(1'000'000, 'x'));
}

TEST(RunChild, PassesArgumentsUnchanged) {
    const std::string awkward = "a \"quoted\" word\\ and \\\"more\\\\";

    EXPECT_EQ(RunChild(kChild, {"echo", awkward}).standardOutput, awkward);
    EXPECT_EQ(RunChild(kChild, {"echo", ""}).standardOutput, "");
}

TEST(RunChild, AddsToTheEnvironment) {
    EXPECT_EQ(RunChild(kChild, {"variable", "ZARVO_CHILD"}, {{"ZARVO_CHILD", "set"}}).standardOutput, "set");
    EXPECT_EQ(RunChild(kChild, {"variable", "ZARVO_CHILD"}).standardOutput, "(none)");
    EXPECT_NE(RunChild(kChild, {"variable", "PATH"}).standardOutput, "(none)");
}

TEST(RunChild, KeepsTheLogOfAProcessThatEndedBadly) {
    const ChildResult result = RunChild(kChild, {"log and terminate"});

    EXPECT_EQ(result.exitCode, kTerminated);
    ASSERT_EQ(result.log.size(), 2U);
    EXPECT_TRUE(result.log[0].ends_with("[Tests] first")) << result.log[0];
    EXPECT_TRUE(result.LastRecord().ends_with("[Tests] last of 2")) << result.LastRecord();
    EXPECT_NE(result.LastRecord().find(" 8 16 "), std::string::npos) << result.LastRecord();
}

TEST(RunChild, HasNoLastRecordWhenNothingWasLogged) {
    EXPECT_EQ(RunChild(kChild, {"exit", "0"}).LastRecord(), "");
}

TEST(RunChild, MeasuresHowLongTheProcessLived) {
    EXPECT_GE(RunChild(kChild, {"sleep", "100"}).elapsed, 100ms);
}

TEST(RunChild, EndsAProcessThatDoesNotEndItself) {
    EXPECT_THROW(RunChild(kChild, {"sleep", "100000"}, {}, 200ms), std::runtime_error);
}

TEST(RunChild, ReportsAProgramThatIsNotThere) {
    EXPECT_THROW(RunChild("no_such_program"), std::runtime_error);
}

}  // namespace
}  // namespace Zarvo::Test
