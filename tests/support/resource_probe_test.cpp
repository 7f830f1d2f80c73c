// The probe must see one lost handle, thread or block, or it proves nothing.
#include "tests/support/resource_probe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/handle_notification_adapter.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {
namespace {

using namespace std::chrono_literals;

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

TEST_F(ResourceProbeTest, SeesWhatEachUseLeaves) {
    std::vector<HANDLE> leaked;
    leaked.reserve(100);
    const auto use = [&] { leaked.push_back(CreateEventW(nullptr, FALSE, FALSE, nullptr)); };

    EXPECT_EQ(GrowthOver(2, use, 0ms).handles, 2);
    for (const HANDLE handle : leaked) {
        CloseHandle(handle);
    }
}

TEST_F(ResourceProbeTest, ForgivesWhatComesOncePerProcess) {
    int uses = 0;
    HANDLE once = nullptr;
    const auto use = [&] { once = ++uses == 3 ? CreateEventW(nullptr, FALSE, FALSE, nullptr) : once; };

    EXPECT_EQ(GrowthOver(2, use, 0ms), Resources{});
    ASSERT_NE(once, nullptr);
    CloseHandle(once);
}

TEST_F(ResourceProbeTest, SeesOneThreadThatStillRuns) {
    Thread([] {}).join();  // what the first thread of a process needs
    Gate gate;
    const ResourceProbe probe;
    Thread thread([&] { gate.Wait(); });

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
    for (std::size_t size : {1U, 24U, 500U, 5'000U, 70'000U, 5'000'000U}) {
        const ResourceProbe probe;
        auto leaked = std::make_unique<char[]>(size);
        const Resources held = probe.Growth();
        leaked.reset();
        const Resources left = probe.Growth();

        EXPECT_EQ(held.blocks, 1) << size;
        EXPECT_EQ(held.bytes, static_cast<std::int64_t>(size));
        EXPECT_EQ(left, Resources{}) << size;
    }
}

// A heap keeps blocks of a frequent size in groups: the single block must be seen all the same.
TEST_F(ResourceProbeTest, SeesOneSmallBlockAmongThousands) {
    std::vector<std::unique_ptr<int>> others(5'000);
    for (auto& other : others) {
        other = std::make_unique<int>(0);
    }
    others.resize(4'000);
    const ResourceProbe probe;
    auto leaked = std::make_unique<int>(1);
    const Resources held = probe.Growth();

    EXPECT_EQ(held.blocks, 1);
    EXPECT_EQ(held.bytes, static_cast<std::int64_t>(sizeof(int)));
}

TEST_F(ResourceProbeTest, SeesABlockThatTheLibraryHolds) {
    using Orvane::Internal::HandleNotificationAdapter;
    static_cast<void>(HandleNotificationAdapter::CreateInstance());
    const ResourceProbe probe;
    auto held = HandleNotificationAdapter::CreateInstance();
    const Resources during = probe.Growth();
    held.reset();
    const Resources after = probe.Growth();

    EXPECT_GE(during.blocks, 1);
    EXPECT_EQ(during.handles, 1);
    EXPECT_EQ(after, Resources{});
}

TEST_F(ResourceProbeTest, SeesAnOverAlignedBlock) {
    struct alignas(64) Aligned {
        char bytes[64];
    };
    const ResourceProbe probe;
    auto leaked = std::make_unique<Aligned>();
    const Resources held = probe.Growth();
    leaked.reset();
    const Resources left = probe.Growth();

    EXPECT_EQ(held.blocks, 1);
    EXPECT_EQ(left.blocks, 0);
}

TEST_F(ResourceProbeTest, FollowsABlockThatIsResized) {
    const ResourceProbe probe;
    void* block = std::realloc(nullptr, 10);
    block = std::realloc(block, 3'000);
    const Resources held = probe.Growth();
    std::free(block);
    const Resources left = probe.Growth();

    EXPECT_EQ(held.blocks, 1);
    EXPECT_EQ(held.bytes, 3'000);
    EXPECT_EQ(left, Resources{});
}

TEST_F(ResourceProbeTest, ReadsNoGrowthOverThousandsOfBlocksGivenBack) {
    const ResourceProbe probe;
    for (std::size_t round = 0; round < 10'000; ++round) {
        const auto block = std::make_unique<char[]>(round % 700 + 1);
    }
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(Resources, ArePrintedWithTheirNames) {
    std::ostringstream text;
    text << Resources{1, -2, 3, 4};

    EXPECT_EQ(text.str(), "1 handles, -2 threads, 3 blocks, 4 bytes");
}

}  // namespace
}  // namespace Zarvo::Test
