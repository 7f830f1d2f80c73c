// The last words of a process that the library ends, each in a process of its own: docs/process-ends.md is what is expected.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kBegin = "ZarvoConcurrency ends the process: ";

// The program that plays the scene.
std::string ProgramOf(const std::string& scene) {
    if (scene == "registration") {
        return "exception_registration_test_child";
    }
    if (scene == "static-group") {
        return "leaving_module_test_child";
    }
    if (scene == "layout") {
        return "layout_test_child";
    }
    if (scene.starts_with("scope")) {
        return "within_test_child";
    }
    const bool isWhitebox = scene == "growth" || scene == "wide-message" || scene.starts_with("deaf");
    return isWhitebox ? "process_ends_whitebox_test_child" : "process_ends_test_child";
}

ChildResult Play(const std::string& scene, const std::map<std::string, std::string>& environment = {}) {
    return RunChild(ProgramOf(scene), {scene}, environment);
}

// A worker's last words, and what is in their way.
ChildResult PlayInTheWay(const std::string& scene) {
    return RunChild("last_words_test_child", {scene});
}

// The lines of the library's last words; the C++ runtime may say something of its own.
std::vector<std::string> LastWordsIn(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(kBegin)) {
            lines.push_back(line);
        }
    }
    return lines;
}

// Without what is another one in each process.
std::string WithoutNumbers(const std::string& line) {
    const std::string text = std::regex_replace(line, std::regex(R"(\[0x[0-9a-f]+ \([0-9]+\)\])"), "[N]");
    return std::regex_replace(text, std::regex("[0-9a-f]{16}"), "N");
}

struct Row {
    std::string line;
    std::string record;
};

std::string WithoutMarks(std::string cell) {
    std::erase(cell, '`');
    const auto begin = cell.find_first_not_of(' ');
    return begin == std::string::npos ? "" : cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin);
}

// The rows of the page's last table, by the scene that each names.
std::map<std::string, Row> RowsOfThePage() {
    std::map<std::string, Row> rows;
    std::ifstream page(ZARVO_DOCS "/process-ends.md");
    bool isInTable = false;
    for (std::string line; std::getline(page, line);) {
        isInTable = line.starts_with("|") && (isInTable || line.starts_with("| When |"));
        std::vector<std::string> cells;
        std::istringstream stream(line);
        for (std::string cell; std::getline(stream, cell, '|');) {
            cells.push_back(WithoutMarks(cell));
        }
        if (isInTable && cells.size() == 5 && cells[1] != "When" && !cells[1].starts_with("---")) {
            rows[cells[4]] = {cells[2], cells[3]};
        }
    }
    return rows;
}

const char* const kScenes[] = {
    "worker",         "unknown-type",   "dedicated",   "overrun",        "scheduler-without-pool",
    "growth",         "deaf",           "deaf-future", "pool-on-worker", "pool-on-dedicated",
    "pool-in-job",    "scheduler-join", "lifetime",    "tracker",        "renewal",
    "registration",   "static-group",   "restoring",   "virtual-deaf",   "virtual-end",
    "virtual-thread", "job-callable",   "job-result",  "scope-order",    "scope-thread",
    "layout",
};

class ProcessEnd : public testing::TestWithParam<const char*> {};

TEST_P(ProcessEnd, SaysTheLineOfItsRowAndLeavesItsRecord) {
    const auto rows = RowsOfThePage();
    const auto row = rows.find(GetParam());
    ASSERT_NE(row, rows.end()) << "the page has no row";

    const ChildResult child = Play(GetParam());

    EXPECT_EQ(child.exitCode, kTerminated);
    const auto lines = LastWordsIn(child.standardError);
    ASSERT_EQ(lines.size(), 1U) << child.standardError;
    EXPECT_EQ(WithoutNumbers(lines[0]), kBegin + row->second.line);

    std::vector<std::string> lastRecords;
    for (const std::string& record : child.log) {
        if (record.find("Z 8 16 ") != std::string::npos) {
            lastRecords.push_back(record.substr(record.find('[')));
        }
    }
    if (row->second.record.empty()) {
        EXPECT_THAT(lastRecords, IsEmpty());
    } else {
        EXPECT_THAT(lastRecords, ElementsAre(row->second.record));
        EXPECT_THAT(child.LastRecord(), EndsWith(row->second.record));
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ProcessEnd, testing::ValuesIn(kScenes), [](const auto& scene) {
    return std::regex_replace(std::string(scene.param), std::regex("-"), "_");
});

TEST(ProcessEndsPage, HasNoRowThatIsNotShown) {
    auto rows = RowsOfThePage();
    for (const char* const scene : kScenes) {
        rows.erase(scene);
    }
    for (const auto& [scene, row] : rows) {
        ADD_FAILURE() << "no scene " << scene << ": " << row.line;
    }
}

std::string OnlyLine(const ChildResult& child) {
    const auto lines = LastWordsIn(child.standardError);
    EXPECT_EQ(lines.size(), 1U) << child.standardError;
    return lines.empty() ? "" : WithoutNumbers(lines.back());
}

const std::string kWorker =
    kBegin + "an exception has left a worker of the pool; task [Import]; thread [N]; std::runtime_error: no such file";

TEST(LastWords, AreSaidWithAndWithoutALog) {
    for (const char* const log : {"", "none", "stderr", "file:no\\such/folder/log"}) {
        const ChildResult child = Play("worker", {{"ZARVO_LOG", log}});
        EXPECT_EQ(child.exitCode, kTerminated) << log;
        EXPECT_EQ(OnlyLine(child), kWorker) << log;
    }
}

TEST(LastWords, FollowTheRecordsOnStandardError) {
    const std::string text = Play("deaf", {{"ZARVO_LOG", "stderr"}}).standardError;

    const auto record = text.find("[FutureState] Thread did not respond to cancellation\n");
    const auto words = text.find(kBegin);
    ASSERT_NE(record, std::string::npos) << text;
    ASSERT_NE(words, std::string::npos) << text;
    EXPECT_LT(record, words);
}

TEST(LastWords, NeedNoMemory) {
    EXPECT_EQ(OnlyLine(PlayInTheWay("without-memory")), kWorker);
}

TEST(LastWords, NameBadAlloc) {
    EXPECT_EQ(OnlyLine(PlayInTheWay("bad-alloc")),
              kBegin +
                  "an exception has left a worker of the pool; task [Import]; thread [N]; "
                  "std::bad_alloc: std::bad_alloc");
}

TEST(LastWords, WaitForNoThreadThatHoldsTheStream) {
    const ChildResult child = PlayInTheWay("stream-held");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(OnlyLine(child), kWorker);
}

TEST(LastWords, AreLostWithoutStandardErrorAndTheProcessEnds) {
    const ChildResult child = PlayInTheWay("closed");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "terminate handler");
    for (const char* const handle : {"null", "invalid"}) {
        EXPECT_EQ(PlayInTheWay(handle).exitCode, kTerminated) << handle;
    }
}

TEST(LastWords, GoToTheDebuggerToo) {
    const ChildResult child = PlayInTheWay("debugger");

    const auto shown = LastWordsIn(child.standardOutput);
    EXPECT_EQ(shown, LastWordsIn(child.standardError));
    EXPECT_EQ(shown.size(), 1U);
}

TEST(LastWords, LeaveTheProgramItsHandlerWithTheException) {
    const ChildResult child = PlayInTheWay("handler");

    EXPECT_EQ(child.exitCode, 7U);
    EXPECT_EQ(child.standardOutput, "no such file");
    EXPECT_EQ(OnlyLine(child), kWorker);
}

TEST(LastWords, FollowTheUnwindingOfTheThread) {
    const ChildResult child = PlayInTheWay("unwound");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "unwound, left the apartment, terminate handler");
    EXPECT_EQ(OnlyLine(child), kWorker);
}

TEST(LastWords, AreOneLineInUtf8) {
    EXPECT_EQ(OnlyLine(PlayInTheWay("characters")),
              kBegin +
                  "an exception has left a worker of the pool; task [Gr\xC3\xB6\xC3\x9F"
                  "e \xE2\x82\xAC \xF0\x9F\x98\x80 \xEF\xBF\xBD]\\n\\t\\x1b]; thread [N]; std::runtime_error: "
                  "caf\xC3\xA9 caf\xC3\xA9\\r\\n\\x1b[2J \\x9b \xF0\x9F\x98\x80");
}

// what() has question marks, or nothing, for what the code page of the thread lacks.
TEST(LastWords, HaveTheWideMessageOfTheFrameworksExceptions) {
    EXPECT_THAT(OnlyLine(Play("wide-message")), EndsWith("; Orvane::Unexpected: \xD0\x96 \xE2\x82\xAC"));
}

// One of the two texts would be cut inside a character.
TEST(LastWords, AreCutBetweenCharacters) {
    for (const char* const scene : {"long", "long-by-one"}) {
        const std::string line = OnlyLine(PlayInTheWay(scene));
        EXPECT_THAT(line, StartsWith(kBegin + "an exception has left a worker of the pool; task [Import]; thread [N]; "
                                              "std::runtime_error: "));
        EXPECT_THAT(line, EndsWith("\xC3\xA9..."));
        EXPECT_GT(line.size(), 3'000U);
        EXPECT_LE(line.size(), 4'096U);
    }
}

TEST(LastWords, HaveAllTheirPartsBehindALongName) {
    const std::string line = OnlyLine(PlayInTheWay("long-name"));

    EXPECT_THAT(line, HasSubstr("\xE2\x82\xAC...]; thread [N]; std::runtime_error: Trying to call destructor"));
    EXPECT_LE(line.size(), 2'000U);
}

}  // namespace
