// The line itself, piece by piece. tests/journeys shows who says it when.
#include "concurrency/base/last_words.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

const std::string kBegin = "ZarvoConcurrency ends the process: ";

// The line behind its beginning. The C++ runtime may say something of its own after it. A debugger is shown the same.
std::string WordsOf(const std::string& scene) {
    const ChildResult child = RunChild("last_words_whitebox_test_child", {scene});
    EXPECT_EQ(child.exitCode, kTerminated);
    const std::string line = child.standardError.substr(0, child.standardError.find('\n') + 1);
    std::string shown = child.standardOutput;
    std::erase(shown, '\r');  // which the runtime puts before each line feed
    EXPECT_EQ(shown, line);
    EXPECT_EQ(line.substr(0, kBegin.size()), kBegin);
    return line.size() > kBegin.size() ? line.substr(kBegin.size(), line.size() - kBegin.size() - 1) : "";
}

// What stands for the exception's type and text.
std::string ExceptionOf(const std::string& scene) {
    const std::string words = WordsOf(scene);
    const std::string begin = "it is over; ";
    EXPECT_EQ(words.substr(0, begin.size()), begin);
    return words.size() > begin.size() ? words.substr(begin.size()) : "";
}

TEST(LastWordsLine, HasTheReason) {
    EXPECT_EQ(WordsOf("bare"), "it is over");
}

TEST(LastWordsLine, HasTheNamesOfTasksThatHaveOne) {
    EXPECT_EQ(WordsOf("no-names"), "it is over");
    EXPECT_EQ(WordsOf("tasks"), "it is over; task [Import > Fetch 17]");
}

TEST(LastWordsLine, MayHaveNoThread) {
    EXPECT_EQ(WordsOf("task-without-thread"), "it is over; task [Import]; std::runtime_error: no such file");
}

TEST(LastWordsLine, IsInTheTraceAsAMoment) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("zarvo-last-words-" + std::to_string(::GetCurrentProcessId()) + ".json");
    RunChild("last_words_whitebox_test_child", {"tasks"}, {{"ZARVO_TRACE", path.string()}});
    std::stringstream trace;
    trace << std::ifstream(path).rdbuf();
    std::error_code ignored;
    std::filesystem::remove(path, ignored);

    EXPECT_NE(trace.str().find(R"("ph":"i")"), std::string::npos) << trace.str();
    EXPECT_NE(trace.str().find(R"("name":"process ends")"), std::string::npos) << trace.str();
    EXPECT_NE(trace.str().find(R"("why":")" + kBegin + R"(it is over; task [Import > Fetch 17]"})"), std::string::npos)
        << trace.str();
}

TEST(LastWordsLine, HasTheThreadInBothNotations) {
    const std::string words = WordsOf("thread");
    std::smatch numbers;
    ASSERT_TRUE(std::regex_match(words, numbers,
                                 std::regex(R"(it is over; task \[Import\]; thread \[0x([0-9a-f]+) \(([0-9]+)\)\])")))
        << words;
    EXPECT_EQ(std::stoul(numbers[1], nullptr, 16), std::stoul(numbers[2]));
}

TEST(LastWordsLine, HasTheThreadsDescription) {
    const std::regex thread(R"(.*; thread \[0x[0-9a-f]+ \([0-9]+\)\] "Importer")");
    for (const char* const scene : {"described", "another"}) {
        const std::string words = WordsOf(scene);
        EXPECT_TRUE(std::regex_match(words, thread)) << words;
    }
    EXPECT_EQ(WordsOf("no-thread"), "it is over; thread [0xfffffffc (4294967292)]");
}

TEST(LastWordsLine, HasEachCharacterInUtf8AndControlCharactersEscaped) {
    const std::string plain =
        "a~\\x7f \\x80\\x9f\xC2\xA0 \xC3\xA9\xDF\xBF \xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF \xF0\x90\x80\x80";
    EXPECT_EQ(ExceptionOf("narrow"), "std::runtime_error: " + plain +
                                         "\xF0\x9F\x98\x81 \xC3\xA9 \xC3\xA2\\x82 \xC3\xB0\\x9f\\x98 "
                                         "\xC3\x83\\n\\r\\t\\x1b");
    EXPECT_EQ(ExceptionOf("wide"), "Orvane::ExceptionBase: " + plain +
                                       "\xF4\x8F\xBF\xBF\xF0\x9F\x98\x81 \xEF\xBF\xBDx\xEF\xBF\xBD\xEF\xBF\xBD"
                                       "\xEE\x80\x80\\n\\r\\t\\x1b\xEF\xBF\xBD");
}

TEST(LastWordsLine, HasTheNarrowTextWhereThereIsNoWideOne) {
    EXPECT_EQ(ExceptionOf("short-record"), "Orvane::ExceptionBase: x");
    EXPECT_EQ(ExceptionOf("empty-record"), "Orvane::ExceptionBase: narrow");
    EXPECT_EQ(ExceptionOf("mute"), "Shop::Front::Mute: ");
}

#if defined(__GNUC__)
TEST(LastWordsLine, HasAClassAsItIsWritten) {
    EXPECT_EQ(ExceptionOf("class"), "Shop::Front::Halt");
    EXPECT_EQ(ExceptionOf("hidden"), "(anonymous namespace)::Hidden");
    EXPECT_EQ(ExceptionOf("global"), "TypeE");
}

TEST(LastWordsLine, HasAnotherTypeAsTheCompilerWritesIt) {
    EXPECT_EQ(ExceptionOf("template"), "N4Shop5Front3BoxIiEE");
    EXPECT_EQ(ExceptionOf("number"), "i");
}
#endif

TEST(LastWordsLine, HasTheTaskThatABodyHasNoted) {
    const auto withoutNumbers = [](const std::string& words) {
        return std::regex_replace(words, std::regex(R"(\[0x[0-9a-f]+ \([0-9]+\)\])"), "[N]");
    };
    EXPECT_EQ(withoutNumbers(WordsOf("body")),
              "the body has failed; task [Import]; thread [N]; std::runtime_error: no such file");
    EXPECT_EQ(
        withoutNumbers(WordsOf("body-of-a-long-name")),
        "the body has failed; task [a name that has more characters]; thread [N]; std::runtime_error: no such file");
}

TEST(LastWordsLine, HasWhatFollowsALongPart) {
    const std::string words = WordsOf("long-reason");
    EXPECT_TRUE(std::regex_match(words, std::regex(R"(r{100,500}\.\.\.; task \[Import\])"))) << words;
}

}  // namespace
