#include "examples/file_digests/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace FileDigests;
using std::chrono::milliseconds;

Options Parse(const std::vector<const wchar_t*>& arguments) {
    return ParseOptions(arguments);
}

// What is wrong with the arguments; empty if nothing.
std::string ProblemOf(const std::vector<const wchar_t*>& arguments) {
    try {
        Parse(arguments);
        return "";
    } catch (const UsageError& error) {
        return error.message;
    }
}

TEST(Options, NothingGivenMeansCurrentDirectoryOnThePoolWithoutALimit) {
    const Options options = Parse({});

    EXPECT_FALSE(options.folder);
    EXPECT_FALSE(options.cancelAfter);
    EXPECT_EQ(options.threads, Threads::kPool);
    EXPECT_FALSE(options.help);
}

TEST(Options, ValuesFollowTheOptionOrAnEqualsSign) {
    for (const auto& arguments :
         {std::vector<const wchar_t*>{L"--threads", L"dedicated", L"--cancel-after", L"250", L"f"},
          std::vector<const wchar_t*>{L"f", L"--cancel-after=250", L"--threads=dedicated"}}) {
        const Options options = Parse(arguments);

        EXPECT_EQ(options.folder, L"f");
        EXPECT_EQ(options.cancelAfter, milliseconds(250));
        EXPECT_EQ(options.threads, Threads::kDedicated);
    }
}

TEST(Options, PoolCanBeAskedForByName) {
    EXPECT_EQ(Parse({L"--threads", L"pool"}).threads, Threads::kPool);
}

TEST(Options, CancelAfterTakesZero) {
    EXPECT_EQ(Parse({L"--cancel-after", L"0"}).cancelAfter, milliseconds(0));
}

TEST(Options, HelpHasAShortName) {
    EXPECT_TRUE(Parse({L"--help"}).help);
    EXPECT_TRUE(Parse({L"-h"}).help);
}

TEST(Options, AfterTwoDashesAnyNameIsAFolder) {
    EXPECT_EQ(Parse({L"--", L"--help"}).folder, L"--help");
}

TEST(Options, SaysWhatIsWrong) {
    EXPECT_EQ(ProblemOf({L"--thread"}), "unknown option '--thread'");
    EXPECT_EQ(ProblemOf({L"-x"}), "unknown option '-x'");
    EXPECT_EQ(ProblemOf({L"--help=yes"}), "unknown option '--help=yes'");
    EXPECT_EQ(ProblemOf({L"--threads"}), "a value is missing after '--threads'");
    EXPECT_EQ(ProblemOf({L"--threads", L"many"}), "--threads is pool or dedicated, not 'many'");
    EXPECT_EQ(ProblemOf({L"--threads="}), "--threads is pool or dedicated, not ''");
    EXPECT_EQ(ProblemOf({L"--cancel-after"}), "a value is missing after '--cancel-after'");
    EXPECT_EQ(ProblemOf({L"a", L"b"}), "one folder is enough, the second is 'b'");
    EXPECT_EQ(ProblemOf({L""}), "the folder's name is empty");
}

TEST(Options, CancelAfterIsAWholeNumberOfMilliseconds) {
    for (const wchar_t* const value : {L"", L"-1", L"1.5", L"1s", L"0x10", L" 1", L"1000000000"}) {
        EXPECT_NE(ProblemOf({L"--cancel-after", value}), "") << value;
    }
}

}  // namespace
