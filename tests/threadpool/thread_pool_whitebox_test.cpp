#include "concurrency/threadpool/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_fields.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Pool = ThreadPool<NullPolicy>;

TEST(ThreadPool, QueueIsFirstInFirstOut) {
    constexpr int kTasks = 1000;
    std::vector<int> order;
    std::vector<int> expected;
    {
        const Pool pool(1);
        HeldTasks held;
        ASSERT_TRUE(held.Start(1, QueueOf(pool)));
        for (int i = 0; i < kTasks; ++i) {
            pool.Core()->Queue(MakeTask(L"task", [&order, i] { order.push_back(i); }));
            expected.push_back(i);
        }
        EXPECT_EQ(CountsOf(pool).queue, static_cast<std::size_t>(kTasks));
    }
    EXPECT_EQ(order, expected);
}

TEST(ThreadPool, QueuedTaskIsPresentUntilItHasReturned) {
    const Pool pool(1);
    HeldTasks first;
    HeldTasks second;
    const Task running = first.Make();
    const Task queued = second.Make();
    ASSERT_TRUE(first.Start(1, [&](const Task&) { pool.Core()->Queue(running); }));
    pool.Core()->Queue(queued);
    EXPECT_TRUE(pool.Core()->IsPresent(running));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    EXPECT_FALSE(pool.Core()->IsPresent(first.Make()));
    first.Release();
    EXPECT_TRUE(Eventually([&] { return queued.IsBusy(); }));
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(running); }));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    second.Release();
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(queued); }));
}

// Loses the pool's first wake-up: as if the worker that was woken, or the caller who was to wake it, got no processor.
class LostWakeUp {
  public:
    LostWakeUp() {
        s_count = 0;
        s_original = m_patch.Original<WakeOne>();
    }

    int Count() const { return s_count; }

  private:
    using WakeOne = void WINAPI(PCONDITION_VARIABLE);

    static void WINAPI Wake(PCONDITION_VARIABLE condition) {
        if (++s_count != 1) {
            s_original.load()(condition);
        }
    }

    static inline std::atomic<WakeOne*> s_original = nullptr;
    static inline std::atomic<int> s_count = 0;
    const ImportPatch m_patch{LibraryUnderTest(), "WakeConditionVariable", &Wake};
};

TEST(ThreadPool, WakesAnotherWorkerIfTheOneThatWasWokenDoesNotComeIn) {
    static std::atomic<unsigned long long> ticks;
    ticks = 100'000;
    const ImportPatch clock(LibraryUnderTest(), "GetTickCount64", +[]() -> unsigned long long { return ticks; });
    std::atomic<int> ran = 0;
    const Pool pool(1);
    {
        const LostWakeUp wakeUps;
        int queued = 0;
        const auto queue = [&] {
            pool.Core()->Queue(MakeTask(L"counted", [&ran] { ++ran; }));
            ++queued;
        };
        while (wakeUps.Count() == 0) {  // until it sleeps
            queue();
            ASSERT_TRUE(Eventually([&] { return wakeUps.Count() != 0 || ran == queued; }));
        }
        ticks += 49;
        queue();
        EXPECT_EQ(wakeUps.Count(), 1);
        EXPECT_EQ(ran, queued - 2);
        ticks += 1;
        queue();
        EXPECT_EQ(wakeUps.Count(), 2);
        EXPECT_TRUE(Eventually([&] { return ran == queued; }));
    }
}

TEST(ThreadPool, FieldsLieInTheirFixedOrder) {
    const Pool pool(1);
    const auto addresses = FieldOrder::Addresses(*pool.Core());
    for (std::size_t i = 1; i < addresses.size(); ++i) {
        EXPECT_LT(addresses[i - 1], addresses[i]) << "field " << i;
    }
}

}  // namespace
