#include "examples/file_digests/checksum_line.h"

#include <gtest/gtest.h>

namespace {

using namespace FileDigests;

constexpr Digest kDigest{0x00, 0x01, 0x9f, 0xff};
const std::string kShown = "00019fff" + std::string(56, '0');

TEST(ChecksumLine, IsDigestTwoSpacesAndName) {
    EXPECT_EQ(ChecksumLine(kDigest, "some folder/* file "), kShown + "  some folder/* file \n");
}

TEST(ChecksumLine, EscapesBackslashAndLineBreaksAndMarksTheLine) {
    EXPECT_EQ(ChecksumLine(kDigest, "a\\b"), "\\" + kShown + "  a\\\\b\n");
    EXPECT_EQ(ChecksumLine(kDigest, "a\nb"), "\\" + kShown + "  a\\nb\n");
    EXPECT_EQ(ChecksumLine(kDigest, "a\rb"), "\\" + kShown + "  a\\rb\n");
}

TEST(ChecksumLine, LoneDashIsNotStandardInput) {
    EXPECT_EQ(ChecksumLine(kDigest, "-"), kShown + "  ./-\n");
    EXPECT_EQ(ChecksumLine(kDigest, "-a"), kShown + "  -a\n");
    EXPECT_EQ(ChecksumLine(kDigest, "a/-"), kShown + "  a/-\n");
}

TEST(ShownName, HasNoControlCharacters) {
    EXPECT_EQ(ShownName("a\n\r\\\x1B[2J\x7F\xC3\xBC"), "a\\n\\r\\\\?[2J?\xC3\xBC");
}

}  // namespace
