// Long use leaves nothing behind: no handle, no thread, no block of memory.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// So few tasks are under way at any time that the pool does not grow.
constexpr int kAtATime = 4;

void RunTasks(int count, std::atomic<int>& ran) {
    std::vector<Task> tasks(kAtATime);
    for (int i = 0; i < count; i += kAtATime) {
        for (Task& task : tasks) {
            task = MakeTask(L"counted", [&ran] { ++ran; });
            GlobalThreadPool::Queue(task);
        }
        for (Task& task : tasks) {
            task.Wait();
        }
    }
}

void FailOne() {
    std::shared_ptr<FutureImpl<void>> future;
    GlobalThreadPool::Queue(MakeTask(L"fails", [] { throw Unexpected(L"failed %d", 1); }, future));
    EXPECT_THROW(future->GetValue(), Unexpected);
}

void CancelOne() {
    const auto entered = std::make_shared<Gate>();
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(
        L"sleeps",
        [entered] {
            entered->Open();
            for (;;) {
                CancellableSleep(INFINITE);
            }
        },
        future);
    GlobalThreadPool::Queue(task);
    entered->Wait();
    task.Cancel();
    EXPECT_THROW(future->GetValue(), CancelledException);
}

// Less is no leak: when the count began, a worker may still have been letting go of its task.
bool IsNoGrowth(const Resources& growth) {
    return growth.handles <= 0 && growth.threads <= 0 && growth.blocks <= 0 && growth.bytes <= 0;
}

// A pause of the machine may make the pool grow after all; then the new workers are no leak, and the count starts anew.
template <typename Use>
void ExpectNoGrowthOfResources(Use use) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    use();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int before = starts.Count();
        const ResourceProbe probe;
        use();
        const bool settled = Eventually([&] { return IsNoGrowth(probe.Growth()) || starts.Count() != before; });
        if (starts.Count() == before) {
            EXPECT_TRUE(settled) << probe.Growth();
            return;
        }
    }
    FAIL() << "the pool grew again and again";
}

TEST(LeakProbe, HundredThousandTasksLeaveNothing) {
    constexpr int kTasks = 100'000;
    std::atomic<int> ran = 0;
    ExpectNoGrowthOfResources([&] {
        ran = 0;
        RunTasks(kTasks, ran);
        EXPECT_EQ(ran, kTasks);
    });
}

TEST(LeakProbe, FailedAndCancelledTasksLeaveNothing) {
    ExpectNoGrowthOfResources([] {
        for (int i = 0; i < 1'000; ++i) {
            FailOne();
            CancelOne();
        }
    });
}

}  // namespace
