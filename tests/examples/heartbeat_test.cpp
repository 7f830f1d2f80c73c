// The example as a person runs it. Judged by what must have happened, not by when: its times are for the eye.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;

// What was printed, without the times before it.
std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        std::erase(line, '\r');
        lines.push_back(std::regex_replace(line, std::regex("^ *[0-9]+ ms  "), ""));
    }
    return lines;
}

// The lines that begin so, without their beginning.
std::vector<std::string> After(const std::string& beginning, const std::vector<std::string>& lines) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (line.starts_with(beginning)) {
            found.push_back(line.substr(beginning.size()));
        }
    }
    return found;
}

// "1" to `last`
std::vector<std::string> Numbers(std::size_t last) {
    std::vector<std::string> numbers;
    for (std::size_t i = 1; i <= last; ++i) {
        numbers.push_back(std::to_string(i));
    }
    return numbers;
}

class Heartbeat : public testing::Test {
  protected:
    static void SetUpTestSuite() { s_result = RunChild("heartbeat"); }

    static inline ChildResult s_result;
    const std::vector<std::string> m_lines = LinesOf(s_result.standardOutput);
};

TEST_F(Heartbeat, PulseBeatsTenTimes) {
    const auto beats = After("Pulse: beat ", m_lines);

    EXPECT_GE(beats.size(), 10U);
    EXPECT_EQ(beats, Numbers(beats.size()));
}

TEST_F(Heartbeat, SlowIsReportedForThePeriodsThatItMisses) {
    const auto runs = After("Slow: begins run ", m_lines);

    EXPECT_FALSE(runs.empty());
    EXPECT_EQ(runs, Numbers(runs.size()));
    EXPECT_THAT(m_lines,
                Contains(EndsWith(" x [Scheduler] TaskImpl Slow taking longer to execute than scheduled interval")));
}

TEST_F(Heartbeat, SleeperIsCancelledInItsThirdRunAndRunsNoMore) {
    EXPECT_THAT(After("Sleeper: ", m_lines), ElementsAre("run 1", "run 2", "run 3", "cancelled in its sleep"));
    // Main has waited for it.
    const auto cancelled = std::find(m_lines.begin(), m_lines.end(), "Sleeper: cancelled in its sleep");
    EXPECT_NE(std::find(cancelled, m_lines.end(), "Main: Sleeper has ended, the others go on"), m_lines.end());
}

TEST_F(Heartbeat, EndsWellAndCountsWhatItPrinted) {
    const auto count = [this](const char* run) { return std::to_string(After(run, m_lines).size()); };

    EXPECT_THAT(m_lines, Contains("Runs: Pulse " + count("Pulse: beat ") + ", Slow " + count("Slow: begins run ") +
                                  ", Sleeper " + count("Sleeper: run ")));
    EXPECT_EQ(s_result.standardError, "");
    EXPECT_EQ(s_result.exitCode, 0U);
}

}  // namespace
