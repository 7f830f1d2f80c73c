// The probe must see one lost handle, thread or block, or it proves nothing.
#include "tests/support/resource_probe.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {
namespace {

class ResourceProbeTest : public testing::Test {
  protected:
    // What the measurement itself needs for the first time is no growth.
    void SetUp() override { Resources::Now(); }
};

TEST_F(ResourceProbeTest, ReadsNoGrowthWhenNothingHappens) {
    const ResourceProbe probe;

    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST_F(ResourceProbeTest, SeesOneLeakedEvent) {
    const ResourceProbe probe;
    const HANDLE leaked = CreateEventW(nullptr, FALSE, FALSE, nullptr);

    EXPECT_EQ(probe.Growth().handles, 1);
    CloseHandle(leaked);
    EXPECT_EQ(probe.Growth().handles, 0);
}

TEST_F(ResourceProbeTest, SeesOneThreadThatStillRuns) {
    std::thread([] {}).join();  // what the first thread of a process needs
    Gate gate;
    const ResourceProbe probe;
    std::thread thread([&] { gate.Wait(); });

    EXPECT_EQ(probe.Growth().threads, 1);
    gate.Open();
    thread.join();
    EXPECT_TRUE(Eventually([&] { return probe.Growth().threads == 0; })) << probe.Growth();
}

TEST_F(ResourceProbeTest, SeesOneLeakedBlockAndItsSize) {
    const ResourceProbe probe;
    auto leaked = std::make_unique<char[]>(1000);

    EXPECT_EQ(probe.Growth().blocks, 1);
    EXPECT_EQ(probe.Growth().bytes, 1000);
    leaked.reset();
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST_F(ResourceProbeTest, SeesEverySizeOfBlock) {
    const ResourceProbe probe;
    for (std::size_t size : {1U, 24U, 500U, 5'000U, 70'000U, 5'000'000U}) {
        const std::unique_ptr<char[]> leaked(new char[size]);

        EXPECT_EQ(probe.Growth().blocks, 1) << size;
        EXPECT_EQ(probe.Growth().bytes, static_cast<std::int64_t>(size));
    }
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST_F(ResourceProbeTest, ReadsNoGrowthOverThousandsOfBlocksGivenBack) {
    const ResourceProbe probe;
    for (int round = 0; round < 10'000; ++round) {
        const std::unique_ptr<char[]> block(new char[static_cast<std::size_t>(round % 700 + 1)]);
    }
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(Resources, ArePrintedWithTheirNames) {
    std::ostringstream text;
    text << Resources{1, -2, 3, 4};

    EXPECT_EQ(text.str(), "1 handles, -2 threads, 3 heap blocks, 4 bytes");
}

}  // namespace
}  // namespace Zarvo::Test
