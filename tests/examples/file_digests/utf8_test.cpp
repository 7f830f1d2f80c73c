#include "examples/file_digests/utf8.h"

#include <gtest/gtest.h>

namespace {

using namespace FileDigests;

TEST(Utf8, EncodesEveryLengthOfCharacter) {
    EXPECT_EQ(ToUtf8(L"a\x7F\x80\x7FF\x800\xFFFD"), "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(L"\xD83D\xDE00\xDBFF\xDFFF"), "\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(ToUtf8(L""), "");
}

TEST(Utf8, UnpairedSurrogateBecomesItsThreeBytesWhereverItStands) {
    EXPECT_EQ(ToUtf8(L"\xD800"), "\xED\xA0\x80");
    EXPECT_EQ(ToUtf8(L"\xDFFFx"), "\xED\xBF\xBFx");
    EXPECT_EQ(ToUtf8(L"\xD83D\xD83D\xDE00"), "\xED\xA0\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(ToUtf8(L"\xDE00\xD83D"), "\xED\xB8\x80\xED\xA0\xBD");
}

TEST(Utf8, ConsoleTextComesBackAndStrayBytesAreReplaced) {
    EXPECT_EQ(ToUtf16("\xC3\xBC\xF0\x9F\x98\x80"), L"\xFC\xD83D\xDE00");
    EXPECT_EQ(ToUtf16("a\xFFz"), L"a\xFFFDz");
    EXPECT_EQ(ToUtf16(""), L"");
}

}  // namespace
