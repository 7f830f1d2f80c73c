#include "concurrency/base/layout.h"

#include <gtest/gtest.h>

#include <string>

#include "concurrency/base/export.h"
#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

TEST(Layout, IsTheOneOfThisProgramAndItsLibrary) {
    EXPECT_TRUE(Orvane::Internal::g_layoutIsTheLibrarys);
    EXPECT_EQ(RunChild("layout_test_child").exitCode, 0U);
}

class OtherLayout : public testing::TestWithParam<std::string> {};

TEST_P(OtherLayout, EndsTheProgramWithAWordOfWhatToDo) {
    const ChildResult result = RunChild("layout_test_child", {GetParam()});
    EXPECT_EQ(result.exitCode, 3U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_NE(
        result.standardError.find("ZarvoConcurrency ends the process: the program was compiled with another compiler"),
        std::string::npos)
        << result.standardError;
    EXPECT_NE(result.standardError.find("; thread [0x"), std::string::npos) << result.standardError;
}

INSTANTIATE_TEST_SUITE_P(Any, OtherLayout,
                         testing::Values("1000000000000",  // version
                                         "20000000000",    // thread model
                                         "100000000",      // a size
                                         "1"));

}  // namespace
