// ForEach() and Map(): which items are done, where, and how many at a time.
#include "concurrency/jobs/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/parallel_items.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"
#include "tests/threadpool/held_tasks.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

class ParallelItems : public testing::TestWithParam<std::tuple<int, std::size_t>> {};

// Each count with each bound: chunks of all sizes, and ends that no chunk fits.
TEST_P(ParallelItems, AreEachDoneOnce) {
    const auto [count, bound] = GetParam();
    const ConcurrencyLifetime lifetime;
    std::vector<int> items(static_cast<std::size_t>(count));
    ForEach(L"items", items, [](int& item) { ++item; }, bound);
    EXPECT_EQ(items, std::vector<int>(static_cast<std::size_t>(count), 1));
    Orvane::Run(L"inside", [&items, bound = bound] {
        ForEach(L"items", items, [](int& item) { ++item; }, bound);
    }).Get();
    EXPECT_EQ(items, std::vector<int>(static_cast<std::size_t>(count), 2));
}

INSTANTIATE_TEST_SUITE_P(OfAll, ParallelItems,
                         testing::Combine(testing::Values(0, 1, 2, 7, 100, 12'345),
                                          testing::Values(std::size_t{1}, std::size_t{3}, std::size_t{8}, Unbounded)));

TEST(ForEachRange, MayBeAListAConstRangeOrATemporary) {
    const ConcurrencyLifetime lifetime;
    std::list<int> list(500);
    ForEach(L"list", list, [](int& item) { ++item; });
    EXPECT_EQ(list, std::list<int>(500, 1));
    const std::vector<int> constant(100, 2);
    std::atomic<int> sum = 0;
    ForEach(L"const", constant, [&sum](const int& item) { sum += item; });
    ForEach(L"temporary", std::vector<int>(100, 3), [&sum](int item) { sum += item; });
    int array[] = {1, 2, 3};
    ForEach(L"array", array, [&sum](int item) { sum += item; });
    EXPECT_EQ(sum, 506);
}

TEST(ForEachRange, MayBeAViewThatMakesItsItems) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> sum = 0;
    ForEach(L"view", std::views::iota(0, 1'000), [&sum](int item) { sum += item; });
    EXPECT_EQ(sum, 499'500);
}

TEST(ForEachCallable, IsUsedInPlaceAndMayReturnSomething) {
    const ConcurrencyLifetime lifetime;
    struct Counting {
        std::atomic<int> calls = 0;
        int operator()(int item) {
            ++calls;
            return item;
        }
    } counting;  // cannot be copied
    ForEach(L"in place", Numbers(100), counting);
    EXPECT_EQ(counting.calls, 100);
}

TEST(ForEachCallable, MayBeAMember) {
    struct Item {
        std::atomic<int> times = 0;
        void Touch() { ++times; }
    };
    const ConcurrencyLifetime lifetime;
    std::vector<Item> items(50);
    ForEach(L"member", items, &Item::Touch);
    EXPECT_TRUE(std::all_of(items.begin(), items.end(), [](const Item& item) { return item.times == 1; }));
}

TEST(MapResults, ComeInTheOrderOfTheItems) {
    const ConcurrencyLifetime lifetime;
    const auto doubled = Map(L"double", Numbers(5'000), [](int item) { return item * 2; });
    ASSERT_EQ(doubled.size(), 5'000U);
    for (int i = 0; i < 5'000; ++i) {
        ASSERT_EQ(doubled[static_cast<std::size_t>(i)], i * 2);
    }
}

TEST(MapResults, MayBeBool) {
    const ConcurrencyLifetime lifetime;
    const std::vector<bool> odd = Map(L"odd", Numbers(1'000), [](int item) { return item % 2 != 0; });
    for (std::size_t i = 0; i < odd.size(); ++i) {
        ASSERT_EQ(odd[i], i % 2 != 0);
    }
    EXPECT_EQ(odd.size(), 1'000U);
}

TEST(MapResults, NeedNeitherACopyNorADefault) {
    struct Result {
        explicit Result(int number) : owned(std::make_unique<int>(number)) {}
        std::unique_ptr<int> owned;
    };
    const ConcurrencyLifetime lifetime;
    const std::vector<Result> results = Map(L"own", Numbers(300), [](int item) { return Result(item); });
    ASSERT_EQ(results.size(), 300U);
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(*results[static_cast<std::size_t>(i)].owned, i);
    }
}

TEST(MapResults, OfReferencesAreCopies) {
    const ConcurrencyLifetime lifetime;
    std::list<std::string> words{"a", "b"};
    const auto copies = Map(L"copy", words, [](std::string& word) -> std::string& { return word; });
    words.clear();
    EXPECT_EQ(copies, (std::vector<std::string>{"a", "b"}));
}

TEST(MapResults, OfNothingAreNone) {
    const ConcurrencyLifetime lifetime;
    EXPECT_TRUE(Map(L"none", std::vector<int>(), [](int item) { return item; }).empty());
}

TEST(MapResults, AreDestroyedWhenOneFails) {
    const ConcurrencyLifetime lifetime;
    const auto token = std::make_shared<int>(1);
    const auto map = [&token] {
        return Map(L"fails", Numbers(100), [&token](int item) {
            if (item == 50) {
                throw FailsAt{item};
            }
            return token;
        });
    };
    EXPECT_THROW(map(), FailsAt);
    EXPECT_EQ(token.use_count(), 1);
}

TEST(ParallelBound, IsNeverExceeded) {
    const ConcurrencyLifetime lifetime;
    for (const std::size_t bound : {std::size_t{1}, std::size_t{2}, std::size_t{5}}) {
        Turnstile turnstile;
        turnstile.LetAllGo();
        const auto pass = [&turnstile](int) {
            turnstile.Pass();
            PauseBriefly();
        };
        ForEach(L"outside", Numbers(60), pass, bound);
        Orvane::Run(L"inside", [&] { ForEach(L"inside", Numbers(60), pass, bound); }).Get();
        EXPECT_LE(turnstile.Most(), static_cast<int>(bound));
    }
}

TEST(ParallelBound, IsReached) {
    const ConcurrencyLifetime lifetime;
    Countdown all(5);
    ForEach(L"outside", Numbers(5), [&all](int) { all.Meet(); }, 5);
    Countdown allInside(5);
    Orvane::Run(L"inside", [&allInside] {
        ForEach(L"inside", Numbers(5), [&allInside](int) { allInside.Meet(); }, 5);
    }).Get();
}

TEST(ParallelBound, OfZeroIsRefused) {
    const ConcurrencyLifetime lifetime;
    EXPECT_THROW(ForEach(L"zero", Numbers(3), [](int) {}, 0), std::invalid_argument);
    EXPECT_THROW(Map(L"zero", Numbers(0), [](int item) { return item; }, 0), std::invalid_argument);
}

std::set<DWORD> ThreadsOf(int count, std::size_t bound) {
    std::mutex mutex;
    std::set<DWORD> threads;
    ForEach(
        L"threads", Numbers(count),
        [&](int) {
            const std::lock_guard lock(mutex);
            threads.insert(::GetCurrentThreadId());
        },
        bound);
    return threads;
}

TEST(ParallelCaller, OutsideARunDoesNotDoItems) {
    const ConcurrencyLifetime lifetime;
    EXPECT_FALSE(ThreadsOf(200, 4).contains(::GetCurrentThreadId()));
}

TEST(ParallelCaller, InAJobDoesItemsAlone) {
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"inside", [] { EXPECT_EQ(ThreadsOf(200, 1), std::set<DWORD>{::GetCurrentThreadId()}); }).Get();
}

TEST(ParallelCaller, InATaskDoesItemsToo) {
    const ConcurrencyLifetime lifetime;
    TaskThread task([] { EXPECT_EQ(ThreadsOf(200, 1), std::set<DWORD>{::GetCurrentThreadId()}); });
    EXPECT_TRUE(task.EndedNormally());
}

TEST(ParallelNested, GetsThroughWithoutADeadlock) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> items = 0;
    ForEach(L"outer", Numbers(12), [&items](int) {
        ForEach(L"middle", Numbers(5), [&items](int) { ForEach(L"inner", Numbers(5), [&items](int) { ++items; }); });
    });
    EXPECT_EQ(items, 300);
}

TEST(ParallelNested, GetsThroughInAJobOfAGroupOfOne) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> items = 0;
    JobGroup group(L"group", 1);
    for (int i = 0; i < 3; ++i) {
        group.Run(L"job", [&items] { ForEach(L"inner", Numbers(20), [&items](int) { ++items; }, 2); });
    }
    group.Wait();
    EXPECT_EQ(items, 60);
}

// Every worker is taken, and the clock stands still: no runner can begin.
TEST(ParallelCaller, DoesNotWaitForARunnerThatCannotBegin) {
    FakeTicks ticks(100'000);
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    ticks.Advance(1'000);
    ASSERT_TRUE(held.Start(7, &Internal::GlobalThreadPool::Queue));
    std::atomic<int> done = 0;
    auto job = Orvane::Run(L"inside", [&done] { ForEach(L"items", Numbers(1'000), [&done](int) { ++done; }, 8); });
    EXPECT_TRUE(job.WaitFor(kPatience));
    EXPECT_EQ(done, 1'000);
    ticks.Advance(1'000);
}

}  // namespace
