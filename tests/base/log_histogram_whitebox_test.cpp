#include "concurrency/base/log_histogram.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using Orvane::Internal::LogHistogram;

void AddMany(LogHistogram& histogram, int count, std::uint64_t value) {
    for (int i = 0; i < count; ++i) {
        histogram.Add(value);
    }
}

TEST(LogHistogram, WithoutValuesIsAllZeros) {
    const LogHistogram histogram;
    EXPECT_EQ(histogram.Count(), 0U);
    EXPECT_EQ(histogram.Sum(), 0U);
    EXPECT_EQ(histogram.Greatest(), 0U);
    EXPECT_EQ(histogram.Percentile(50), 0.0);
}

TEST(LogHistogram, KeepsNumberSumAndGreatestExactly) {
    LogHistogram histogram;
    histogram.Add(7);
    histogram.Add(123'456'789);
    histogram.Add(1);
    EXPECT_EQ(histogram.Count(), 3U);
    EXPECT_EQ(histogram.Sum(), 123'456'797U);
    EXPECT_EQ(histogram.Greatest(), 123'456'789U);
}

TEST(LogHistogram, HasEveryPercentileWithinAQuarter) {
    for (double value = 1024; value < 5e14; value *= 1.07) {
        LogHistogram histogram;
        AddMany(histogram, 9, static_cast<std::uint64_t>(value));
        histogram.Add(std::uint64_t{1} << 55);  // so that the greatest does not help
        EXPECT_NEAR(histogram.Percentile(50) / value, 1.0, 0.2501) << value;
    }
}

TEST(LogHistogram, CountsWhatIsBeyondItsBucketsInTheLast) {
    LogHistogram histogram;
    AddMany(histogram, 2, ~std::uint64_t{0} / 4);
    EXPECT_EQ(histogram.Count(), 2U);
    EXPECT_GT(histogram.Percentile(50), 5e14);
}

TEST(LogHistogram, GivesThePercentileOfTheRank) {
    LogHistogram histogram;
    AddMany(histogram, 99, 10'000);
    histogram.Add(1'000'000'000);
    EXPECT_LT(histogram.Percentile(99), 20'000);
    EXPECT_GT(histogram.Percentile(99.5), 500'000'000);
    histogram.Add(1'000'000'000);  // now 2 of 101 are as great
    EXPECT_GT(histogram.Percentile(99), 500'000'000);
}

TEST(LogHistogram, GivesNoPercentileAboveTheGreatest) {
    LogHistogram histogram;
    histogram.Add(1'025);
    EXPECT_EQ(histogram.Percentile(99), 1'025.0);
    LogHistogram small;
    small.Add(3);
    EXPECT_EQ(small.Percentile(50), 3.0);
}

TEST(LogHistogram, GivesTheSmallestAsThePercentileOfNone) {
    LogHistogram histogram;
    AddMany(histogram, 3, 1'000'000);
    EXPECT_GT(histogram.Percentile(0), 500'000);
}

TEST(LogHistogram, CountsSmallValuesTogether) {
    LogHistogram histogram;
    AddMany(histogram, 9, 3);
    histogram.Add(1'000'000);  // so that the greatest does not help
    EXPECT_GE(histogram.Percentile(50), 0);
    EXPECT_LT(histogram.Percentile(50), 1'024);

    LogHistogram all;
    all.Add(histogram);
    EXPECT_EQ(all.Count(), 10U);
    EXPECT_LT(all.Percentile(50), 1'024);
}

TEST(LogHistogram, AddsAnotherOne) {
    LogHistogram all;
    AddMany(all, 10, 2'000);
    LogHistogram other;
    AddMany(other, 90, 4'000'000);
    all.Add(other);
    EXPECT_EQ(all.Count(), 100U);
    EXPECT_EQ(all.Sum(), 10U * 2'000 + 90U * 4'000'000);
    EXPECT_EQ(all.Greatest(), 4'000'000U);
    EXPECT_LT(all.Percentile(10), 3'000);
    EXPECT_GT(all.Percentile(11), 3'000'000);
}

}  // namespace
