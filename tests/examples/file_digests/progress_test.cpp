#include "examples/file_digests/progress.h"

#include <gtest/gtest.h>

namespace {

using namespace FileDigests;

constexpr std::uint64_t kMiB = 1024 * 1024;

TEST(ShownBytes, ChoosesTheUnitSoThatTheNumberIsShort) {
    EXPECT_EQ(ShownBytes(0), "0 bytes");
    EXPECT_EQ(ShownBytes(1023), "1023 bytes");
    EXPECT_EQ(ShownBytes(1023.6), "1.0 KiB");
    EXPECT_EQ(ShownBytes(1536), "1.5 KiB");
    EXPECT_EQ(ShownBytes(1024.0 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(ShownBytes(500.0 * kMiB), "500.0 MiB");
    EXPECT_EQ(ShownBytes(5000.0 * 1024 * 1024 * kMiB), "5000.0 TiB");
}

TEST(Progress, ShowsBarPercentSpeedsAndTimeLeft) {
    Progress progress({100, 200 * kMiB});

    progress.Update({50, 100 * kMiB}, 10);

    EXPECT_EQ(progress.Line(78), "[#######.......]  50 %   50/100 files      5 files/s    10.0 MiB/s   0:10 left");
}

TEST(Progress, AtTheBeginningTheTimeLeftIsUnknown) {
    const Progress progress({100, 200 * kMiB});

    EXPECT_EQ(progress.Line(78), "[..............]   0 %    0/100 files      0 files/s     0 bytes/s      ? left");
}

TEST(Progress, AtTheEndTheBarIsFull) {
    Progress progress({2, kMiB});

    progress.Update({2, kMiB}, 1);

    EXPECT_EQ(progress.Line(78), "[##################] 100 %  2/2 files      2 files/s     1.0 MiB/s   0:00 left");
}

TEST(Progress, CountsSmallFilesAndBytesAlike) {
    Progress bytes({1000, 125 * kMiB});
    Progress files({1000, 125 * kMiB});

    bytes.Update({0, 125 * kMiB}, 1);
    files.Update({1000, 0}, 1);

    EXPECT_NE(bytes.Line(78).find(" 50 %"), std::string::npos) << bytes.Line(78);
    EXPECT_NE(files.Line(78).find(" 50 %"), std::string::npos) << files.Line(78);
}

TEST(Progress, FilesThatHaveGrownDoNotPassAHundredPercent) {
    Progress progress({1, kMiB});

    progress.Update({0, 3 * kMiB}, 1);

    EXPECT_EQ(progress.Line(78).substr(0, 26), "[##################] 100 %");
}

TEST(Progress, SpeedsForgetWhatIsLongAgo) {
    Progress progress({100, 2000 * kMiB});

    progress.Update({0, 1000 * kMiB}, 1);
    progress.Update({0, 1000 * kMiB + 120}, 121);

    EXPECT_NE(progress.Line(78).find(" 1 bytes/s"), std::string::npos) << progress.Line(78);
}

TEST(Progress, LongTimesAreShownInHours) {
    Progress progress({0, 7200 * kMiB});

    progress.Update({0, kMiB}, 1);

    EXPECT_NE(progress.Line(78).find(" 1:59:59 left"), std::string::npos) << progress.Line(78);
}

TEST(Progress, LineNeverExceedsItsColumns) {
    Progress progress({100, 200 * kMiB});
    progress.Update({50, 100 * kMiB}, 10);

    for (int columns = 0; columns < 200; ++columns) {
        EXPECT_LE(progress.Line(columns).size(), static_cast<std::size_t>(columns));
    }
    EXPECT_EQ(progress.Line(20), " 50 %   50/100 files");
    EXPECT_EQ(progress.Line(-1), "");
}

TEST(Progress, NothingToDoIsDone) {
    EXPECT_EQ(Progress({0, 0}).Line(78).substr(0, 26), "[##################] 100 %");
}

}  // namespace
