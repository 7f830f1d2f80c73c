#include "concurrency/base/hresult.h"

#include <gtest/gtest.h>

namespace {

using Orvane::Internal::HresultOf;

TEST(HresultOf, LeavesZeroAsItIs) {
    EXPECT_EQ(HresultOf(0), 0U);
}

TEST(HresultOf, PutsAPositiveCodeIntoTheWin32Facility) {
    EXPECT_EQ(HresultOf(3), 0x80070003U);
    EXPECT_EQ(HresultOf(1), 0x80070001U);
    EXPECT_EQ(HresultOf(0xFFFF), 0x8007FFFFU);
}

TEST(HresultOf, KeepsTheLowerHalfOfAPositiveCodeOnly) {
    EXPECT_EQ(HresultOf(0x12345), 0x80072345U);
    EXPECT_EQ(HresultOf(0x7FFFFFFF), 0x8007FFFFU);
}

TEST(HresultOf, LeavesWhatIsNegativeAsASignedNumberAsItIs) {
    EXPECT_EQ(HresultOf(0x80000000), 0x80000000U);
    EXPECT_EQ(HresultOf(0x80070005), 0x80070005U);
    EXPECT_EQ(HresultOf(0xFFFFFFFF), 0xFFFFFFFFU);
}

}  // namespace
