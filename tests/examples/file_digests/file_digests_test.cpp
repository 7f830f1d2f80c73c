// The program as a person runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/examples/file_digests/temporary_tree.h"
#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kEmpty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855  ";
const std::string kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  ";
const std::string kMillionA = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0  ";

// More than can be read while a test waits for it.
constexpr std::uint64_t kEndless = std::uint64_t{1} << 40;

ChildResult RunDigests(std::vector<std::string> arguments) {
    return RunChild("file_digests", arguments);
}

// What was printed, apart at the line feeds alone.
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> Names(const ChildResult& result) {
    std::vector<std::string> names;
    for (const std::string& line : Lines(result.standardOutput)) {
        names.push_back(line.substr(66));
    }
    return names;
}

std::size_t CountRecords(const ChildResult& result, const std::string& part) {
    return static_cast<std::size_t>(std::count_if(result.log.begin(), result.log.end(), [&](const std::string& record) {
        return record.find(part) != std::string::npos;
    }));
}

// How many threads have run a task whose name begins so.
std::size_t CountThreads(const ChildResult& result, const std::string& name) {
    std::set<std::string> threads;
    for (const std::string& record : result.log) {
        const std::size_t thread = record.find("] started in thread [");
        if (thread != std::string::npos && record.find("Task [" + name) < thread) {
            threads.insert(record.substr(thread, record.find(')', thread) - thread));
        }
    }
    return threads.size();
}

class FileDigestsTest : public testing::Test {
  protected:
    TemporaryTree m_tree;
};

TEST_F(FileDigestsTest, PrintsTheKnownDigests) {
    m_tree.Write(L"abc", "abc");
    m_tree.Write(L"empty");
    m_tree.Write(L"million", std::string(1'000'000, 'a'));

    const ChildResult result = RunDigests({m_tree.Path()});

    EXPECT_EQ(result.standardOutput, kAbc + "abc\n" + kEmpty + "empty\n" + kMillionA + "million\n");
    EXPECT_EQ(result.exitCode, 0U);
}

TEST_F(FileDigestsTest, SortsByTheBytesOfTheWholePath) {
    for (const wchar_t* const path :
         {L"a\\b", L"a.txt", L"B", L"a\\Z\\c", L"a b", L"\x00E4", L"\xD83D\xDE00", L"\xFB01"}) {
        m_tree.Write(path);
    }

    EXPECT_THAT(Names(RunDigests({m_tree.Path()})),
                ElementsAre("B", "a b", "a.txt", "a/Z/c", "a/b", "\xC3\xA4", "\xEF\xAC\x81", "\xF0\x9F\x98\x80"));
}

TEST_F(FileDigestsTest, ReadsPathsLongerThanThePlatformsOldLimit) {
    std::wstring folder = L"deep";
    while (folder.size() < 600) {
        folder += L"\\" + std::wstring(60, L'x');
    }
    m_tree.Write(folder + L"\\abc", "abc");

    const ChildResult result = RunDigests({m_tree.Path()});

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_THAT(result.standardOutput, StartsWith(kAbc + "deep/xxx"));
    EXPECT_THAT(result.standardOutput, EndsWith("/abc\n"));
    EXPECT_GT(result.standardOutput.size(), 600U);
}

TEST_F(FileDigestsTest, ReadsNamesThatOrdinaryPathsCannotHold) {
    for (const wchar_t* const name : {L"nul", L"con.txt", L"dot.", L"space "}) {
        m_tree.Write(name, "abc");
    }

    EXPECT_EQ(RunDigests({m_tree.Path()}).standardOutput,
              kAbc + "con.txt\n" + kAbc + "dot.\n" + kAbc + "nul\n" + kAbc + "space \n");
}

TEST_F(FileDigestsTest, DigestsSeveralHundredMebibytes) {
    m_tree.WriteZeros(L"zeros", 256 * 1024 * 1024);

    EXPECT_EQ(RunDigests({m_tree.Path()}).standardOutput,
              "a6d72ac7690f53be6ae46ba88506bd97302a093f7108472bd9efc3cefda06484  zeros\n");
}

TEST_F(FileDigestsTest, EmptyFolderHasNoDigestsAndIsNoFailure) {
    const ChildResult result = RunDigests({m_tree.Path()});

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, StartsWith("file_digests: 0 done, 0 failed, 0 cancelled; 0 bytes read in "));
}

TEST_F(FileDigestsTest, MissingFolderIsNamed) {
    const ChildResult result = RunDigests({m_tree.Path() + "\\missing"});

    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, HasSubstr("missing: cannot open: "));
    EXPECT_THAT(result.standardError, HasSubstr("(error 2)"));
}

TEST_F(FileDigestsTest, FileInPlaceOfTheFolderIsRefused) {
    m_tree.Write(L"file", "abc");

    const ChildResult result = RunDigests({m_tree.Path() + "\\file"});

    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, HasSubstr("file: cannot open as a folder: "));
}

TEST_F(FileDigestsTest, UnreadableFileIsNamedAndTheOthersComplete) {
    m_tree.Write(L"a", "abc");
    m_tree.Write(L"sub\\locked", "abc");
    m_tree.Write(L"z", "abc");
    const FileDigests::Handle lock = m_tree.Lock(L"sub\\locked");

    const ChildResult result = RunDigests({m_tree.Path()});

    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.standardOutput, kAbc + "a\n" + kAbc + "z\n");
    EXPECT_THAT(result.standardError, HasSubstr("file_digests: sub/locked: cannot open: "));
    EXPECT_THAT(result.standardError, HasSubstr("(error 32)"));
    EXPECT_THAT(result.standardError, HasSubstr("2 done, 1 failed, 0 cancelled"));
}

TEST_F(FileDigestsTest, CancelAfterNothingDigestsNothing) {
    for (const wchar_t* const name : {L"a", L"b", L"c"}) {
        m_tree.Write(name, "abc");
    }

    const ChildResult result = RunDigests({m_tree.Path(), "--cancel-after", "0"});

    EXPECT_EQ(result.exitCode, 2U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, HasSubstr("0 done, 0 failed, 3 cancelled"));
}

class FileDigestsOnThreadsTest : public FileDigestsTest, public testing::WithParamInterface<const char*> {};

TEST_P(FileDigestsOnThreadsTest, CancelledInABigFileKeepsTheDigestsOfTheOthers) {
    m_tree.Write(L"a", "abc");
    m_tree.WriteZeros(L"endless", kEndless);
    m_tree.Write(L"z", "abc");
    const FileDigests::Handle lock = m_tree.Lock(L"z");

    const ChildResult result = RunDigests({m_tree.Path(), "--threads", GetParam(), "--cancel-after", "3000"});

    EXPECT_EQ(result.exitCode, 2U);
    EXPECT_EQ(result.standardOutput, kAbc + "a\n");
    EXPECT_THAT(result.standardError, HasSubstr("1 done, 1 failed, 1 cancelled"));
}

TEST_P(FileDigestsOnThreadsTest, TwoThousandSmallFilesAreTwoThousandTasks) {
    std::string expected;
    for (int i = 1000; i < 3000; ++i) {
        m_tree.Write(L"folder" + std::to_wstring(i % 10) + L"\\file" + std::to_wstring(i), "abc");
    }
    for (int folder = 0; folder < 10; ++folder) {
        for (int i = 1000 + folder; i < 3000; i += 10) {
            expected += kAbc + "folder" + std::to_string(folder) + "/file" + std::to_string(i) + "\n";
        }
    }

    const ChildResult result = RunDigests({m_tree.Path(), "--threads", GetParam()});

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.standardOutput, expected);
    EXPECT_EQ(CountRecords(result, "Task [file"), 4000U) << "a start and a stop for each";
    EXPECT_EQ(CountRecords(result, "Task [file2999]"), 2U);
    if (GetParam() == std::string("pool")) {
        EXPECT_LE(CountThreads(result, "file"), 100U);
    } else {
        EXPECT_GT(CountThreads(result, "file"), 100U) << "the platform may give a number again, but not at once";
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, FileDigestsOnThreadsTest, testing::Values("pool", "dedicated"),
                         [](const auto& threads) { return threads.param; });

TEST_F(FileDigestsTest, WithoutAFolderTheCurrentOneIsReadExceptGitAndBuildAtItsTop) {
    for (const wchar_t* const path :
         {L".git\\a", L"build\\b", L"sub\\build\\c", L"sub\\.git\\d", L".github\\e", L"f"}) {
        m_tree.Write(path);
    }
    ASSERT_TRUE(SetCurrentDirectoryW(m_tree.Path(L"").c_str() + 4));

    EXPECT_THAT(Names(RunDigests({})), ElementsAre(".github/e", "f", "sub/.git/d", "sub/build/c"));
    EXPECT_THAT(Names(RunDigests({"."})),
                ElementsAre(".git/a", ".github/e", "build/b", "f", "sub/.git/d", "sub/build/c"));

    ASSERT_TRUE(SetCurrentDirectoryW(L"C:\\")) << "or the tree cannot be removed";
}

TEST_F(FileDigestsTest, FolderMayEndWithABackslash) {
    m_tree.Write(L"a", "abc");

    EXPECT_EQ(RunDigests({m_tree.Path() + "\\"}).standardOutput, kAbc + "a\n");
}

TEST_F(FileDigestsTest, AwayFromAConsoleThereIsNoProgressLineAndNoTaskForIt) {
    m_tree.Write(L"a", "abc");
    m_tree.WriteZeros(L"zeros", 256 * 1024 * 1024);  // long enough for a few lines

    const ChildResult result = RunDigests({m_tree.Path()});

    EXPECT_THAT(result.standardError, Not(HasSubstr("\r")));
    EXPECT_EQ(Lines(result.standardError).size(), 1U) << result.standardError;
    EXPECT_EQ(CountRecords(result, "Task [zeros] stopped"), 1U);
    EXPECT_EQ(CountRecords(result, "Task [Status line]"), 0U);
}

TEST(FileDigests, WrongUsageRunsNothing) {
    const ChildResult result = RunChild("file_digests", {"--cancel-after", "soon"});

    EXPECT_EQ(result.exitCode, 64U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError,
              "file_digests: --cancel-after wants a number of milliseconds, not 'soon'; --help tells more\n");
    EXPECT_THAT(result.log, IsEmpty());
}

TEST(FileDigests, HelpGoesToStandardOutput) {
    const ChildResult result = RunChild("file_digests", {"--help"});

    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_THAT(result.standardOutput, StartsWith("usage: file_digests "));
    EXPECT_EQ(result.standardError, "");
}

}  // namespace
