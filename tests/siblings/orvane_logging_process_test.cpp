// What only a whole process can show: the environment variables, and its end.
#include <algorithm>
#include <cstdint>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/siblings/scratch_folder.h"
#include "tests/support/child_process.h"
#include "tests/support/thread.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Zarvo::Test::ChildResult;
using Zarvo::Test::ReadLines;
using Zarvo::Test::RunChild;
using Zarvo::Test::ScratchFolder;
using Zarvo::Test::Thread;

namespace {

// A whole line of the child's, whose message matches the expression.
MATCHER_P(IsLine, message, "") {
    return std::regex_match(arg, std::regex(R"(20.{25}Z [18] 16 \d+:\d+ \[child\] )" + std::string(message)));
}

ChildResult RunWith(const std::string& mode, const std::map<std::string, std::string>& environment) {
    return RunChild("orvane_logging_test_child", {mode}, environment);
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// The sink of the child, a file, and what the child left there.
class OrvaneLoggingProcess : public testing::Test {
  protected:
    std::vector<std::string> RunIntoFile(const std::string& mode, std::uint32_t exitCode) {
        EXPECT_EQ(RunWith(mode, {{"ZARVO_LOG", "file:" + File()}}).exitCode, exitCode);
        return ReadLines(File());
    }

    [[nodiscard]] std::string File() const { return m_folder.File(L"a log.txt").string(); }

    ScratchFolder m_folder;
};

}  // namespace

TEST_F(OrvaneLoggingProcess, LogsNothingUntilAskedTo) {
    const ChildResult result = RunWith("levels", {{"ZARVO_LOG", ""}});
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.standardError, "");
}

TEST_F(OrvaneLoggingProcess, LogsNothingWhenToldSo) {
    EXPECT_EQ(RunWith("levels", {{"ZARVO_LOG", "none"}}).standardError, "");
}

TEST_F(OrvaneLoggingProcess, EnvironmentChoosesStandardError) {
    EXPECT_THAT(LinesOf(RunWith("levels", {{"ZARVO_LOG", "stderr"}}).standardError),
                ElementsAre(EndsWith("[child] before main"), EndsWith("[child] one"), EndsWith("[child] four"),
                            EndsWith("[child] eight")));
}

TEST_F(OrvaneLoggingProcess, EnvironmentChoosesAFile) {
    EXPECT_THAT(RunIntoFile("levels", 0), ElementsAre(EndsWith("[child] before main"), EndsWith("[child] one"),
                                                      EndsWith("[child] four"), EndsWith("[child] eight")));
}

TEST_F(OrvaneLoggingProcess, EnvironmentChoosesTheMinimumLevel) {
    EXPECT_THAT(LinesOf(RunWith("levels", {{"ZARVO_LOG", "stderr"}, {"ZARVO_LOG_LEVEL", "4"}}).standardError),
                ElementsAre(EndsWith("[child] four"), EndsWith("[child] eight")));
}

TEST_F(OrvaneLoggingProcess, CallsOverruleTheEnvironmentButKeepItsLevel) {
    const ChildResult result = RunWith("choose-stderr", {{"ZARVO_LOG", "file:" + File()}, {"ZARVO_LOG_LEVEL", "8"}});
    EXPECT_THAT(LinesOf(result.standardError), ElementsAre(EndsWith("[child] eight")));
    EXPECT_THAT(ReadLines(File()), IsEmpty());
}

TEST_F(OrvaneLoggingProcess, UnknownSinkIsExplainedInOneLineAndNothingIsLogged) {
    const ChildResult result = RunWith("levels", {{"ZARVO_LOG", "Stderr\xCE\xA9"}});
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_THAT(LinesOf(result.standardError),
                ElementsAre(AllOf(HasSubstr("ZARVO_LOG: \"Stderr\xCE\xA9\""), HasSubstr("file:PATH"))));
}

TEST_F(OrvaneLoggingProcess, UnknownLevelIsExplainedAndEveryLevelIsLogged) {
    const ChildResult result = RunWith("levels", {{"ZARVO_LOG", "stderr"}, {"ZARVO_LOG_LEVEL", "4x"}});
    EXPECT_THAT(LinesOf(result.standardError),
                ElementsAre(HasSubstr("ZARVO_LOG_LEVEL: \"4x\" is not a number"), EndsWith("before main"),
                            EndsWith("one"), EndsWith("four"), EndsWith("eight")));
}

TEST_F(OrvaneLoggingProcess, FileThatCannotBeOpenedIsExplainedAndNothingIsLogged) {
    const ChildResult result = RunWith("levels", {{"ZARVO_LOG", "file:" + File() + "\\no\\folder"}});
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_THAT(LinesOf(result.standardError),
                ElementsAre(AllOf(HasSubstr("ZARVO_LOG: cannot open"), HasSubstr("a log.txt\\no\\folder"),
                                  HasSubstr("(error 3)"))));
}

TEST_F(OrvaneLoggingProcess, LastRecordBeforeTerminateIsKept) {
    EXPECT_THAT(RunIntoFile("terminate", 3), ElementsAre(EndsWith("before main"), EndsWith("[child] last words")));
}

TEST_F(OrvaneLoggingProcess, LastRecordBeforeTerminateIsKeptOnStandardError) {
    const ChildResult result = RunWith("terminate", {{"ZARVO_LOG", "stderr"}});
    EXPECT_THAT(result.standardError, HasSubstr("[child] last words\n"));
}

TEST_F(OrvaneLoggingProcess, LastRecordOfAKilledProcessIsKept) {
    EXPECT_THAT(RunIntoFile("killed", 7), ElementsAre(EndsWith("before main"), EndsWith("[child] last words")));
}

TEST_F(OrvaneLoggingProcess, RecordsOfExitHandlersAndStaticDestructorsAreKept) {
    EXPECT_THAT(RunIntoFile("exit", 0), ElementsAre(EndsWith("before main"), EndsWith("[child] atexit"),
                                                    EndsWith("[child] static destructor")));
}

TEST_F(OrvaneLoggingProcess, ProcessThatEndsAmongReportsLeavesWholeLinesAndItsLastWords) {
    const std::vector<std::string> lines = RunIntoFile("end-among-reports", 0);
    EXPECT_THAT(lines, Contains(IsLine("last words")));
    EXPECT_THAT(lines, Each(IsLine("(before main|last words|still running)")));
}

TEST_F(OrvaneLoggingProcess, SeveralProcessesShareAFileAndLoseNothing) {
    constexpr int kProcesses = 3;
    std::vector<Thread> runs;
    for (int i = 0; i < kProcesses; ++i) {
        runs.emplace_back([this] { EXPECT_EQ(RunWith("many", {{"ZARVO_LOG", "file:" + File()}}).exitCode, 0u); });
    }
    for (Thread& run : runs) {
        run.join();
    }
    const std::vector<std::string> lines = ReadLines(File());
    EXPECT_THAT(lines, SizeIs(kProcesses * (1 + 300)));
    EXPECT_THAT(lines, Each(IsLine(R"((before main|\d+ \d+ end))")));
}

// A lock that another thread held when the process ended would otherwise be waited for in vain.
TEST(ProcessLock, IsNotWaitedForOnceTheOtherThreadsAreGone) {
    const ChildResult result = RunChild("process_lock_whitebox_test_child");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.standardError, "went in\n");
}
