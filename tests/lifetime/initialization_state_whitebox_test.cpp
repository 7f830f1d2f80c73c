#include "concurrency/lifetime/initialization_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <type_traits>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/eventually.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(InitializationState, IsZeroAtLoad) {
    EXPECT_EQ(g_initializationState.initCount, 0);
    EXPECT_FALSE(g_initializationState.isTearingDown);
}

TEST(InitializationState, CountIsASignedBalanceOfAllCalls) {
    static_assert(std::is_same_v<decltype(g_initializationState.initCount), std::int32_t>);
    const auto countAfter = [](void (*call)()) {
        call();
        return g_initializationState.initCount;
    };

    EXPECT_EQ(countAfter(&ConcurrencyInitialize), 1);
    EXPECT_EQ(countAfter(&ConcurrencyInitialize), 2);
    EXPECT_EQ(countAfter(&ConcurrencyUninitialize), 1);
    EXPECT_EQ(countAfter(&ConcurrencyUninitialize), 0);
    EXPECT_EQ(countAfter(&ConcurrencyUninitialize), -1);
    EXPECT_EQ(countAfter(&ConcurrencyUninitialize), -2);
    EXPECT_EQ(countAfter(&ConcurrencyInitialize), -1);
    EXPECT_EQ(countAfter(&ConcurrencyInitialize), 0);
    EXPECT_EQ(countAfter(&ConcurrencyInitialize), 1);
}

TEST(InitializationState, LifetimeMutexSerialisesInitialisationAndUninitialisation) {
    ConcurrencyInitialize();
    std::unique_lock held(LifetimeMutex());
    std::atomic<int> ended = 0;
    Thread initialising([&] {
        ConcurrencyInitialize();
        ++ended;
    });
    Thread uninitialising([&] {
        ConcurrencyUninitialize();
        ++ended;
    });

    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(ended, 0);
    EXPECT_EQ(g_initializationState.initCount, 1);

    held.unlock();
    initialising.join();
    uninitialising.join();
    EXPECT_EQ(g_initializationState.initCount, 1);
}

TEST(InitializationState, LifetimeMutexIsRecursive) {
    static_assert(std::is_base_of_v<std::recursive_mutex, std::remove_reference_t<decltype(LifetimeMutex())>>);
    const std::lock_guard held(LifetimeMutex());

    ConcurrencyInitialize();
    ConcurrencyUninitialize();

    EXPECT_EQ(g_initializationState.initCount, 0);
}

TEST(InitializationState, AskingDoesNotTakeTheLifetimeMutex) {
    ConcurrencyInitialize();
    std::unique_lock held(LifetimeMutex());
    std::atomic<bool> answer = false;
    Thread asking([&] { answer = IsConcurrencyInitialized(); });

    EXPECT_TRUE(Eventually([&] { return answer.load(); }, 20s));

    held.unlock();
    asking.join();
}

}  // namespace
