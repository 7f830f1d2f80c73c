#include "zarvo_orvane_logging/growing_text.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/support/allocations.h"

using Orvane::Reports::GrowingText;
using Zarvo::Test::NoMemory;

namespace {

using SmallText = GrowingText<char, 32>;
constexpr std::string_view kRemark = " [cut: out of memory]";

}  // namespace

TEST(GrowingText, KeepsWhatIsAppendedWhateverItsLength) {
    SmallText text;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        text.Append("piece ");
        text.Append(2, '.');
        expected += "piece ..";
    }
    text.Close("\n");
    EXPECT_EQ(text.Text(), expected + "\n");
}

TEST(GrowingText, ClosesWithoutRemarkWhenItFitsExactly) {
    SmallText text;
    {
        const NoMemory noMemory;
        text.Append(31, 'x');
        text.Close("\n");
    }
    EXPECT_EQ(text.Text(), std::string(31, 'x') + "\n");
}

TEST(GrowingText, WithoutMemoryIsCutAndSaysSo) {
    SmallText text;
    {
        const NoMemory noMemory;
        text.Append(40, 'x');
    }
    text.Append("not after a hole");
    text.Close("\n");
    EXPECT_EQ(text.Text(), std::string(32 - kRemark.size() - 1, 'x').append(kRemark) + "\n");
}

TEST(GrowingText, EndingAloneMayBeWhatDoesNotFit) {
    SmallText text;
    {
        const NoMemory noMemory;
        text.Append(32, 'x');
        text.Close("\n");
    }
    EXPECT_EQ(text.Text(), std::string(32 - kRemark.size() - 1, 'x').append(kRemark) + "\n");
}

TEST(GrowingText, IsNotCutInTheMiddleOfACharacter) {
    SmallText text;
    text.Append("01234567\xE2\x82\xAC");  // the remark has room after ten bytes, inside the last character
    {
        const NoMemory noMemory;
        text.Append(40, 'x');
    }
    text.Close("\n");
    EXPECT_EQ(text.Text(), std::string("01234567").append(kRemark) + "\n");
}
