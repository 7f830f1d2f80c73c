// Cancellation from several threads at once, of tasks that are blocked or about to block.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/stopwatch.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr std::size_t kStormTasks = 24;
constexpr std::size_t kCancellers = 3;

// Something to wait for that never comes.
class Never {
  public:
    Never() : m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~Never() { CloseHandle(m_event); }
    Never(const Never&) = delete;
    Never& operator=(const Never&) = delete;

    // One cancellable wait of a random kind. Each starts with the registration that a request must not miss.
    void Wait(Random& random, DWORD milliseconds) const {
        switch (Choose(random, 4)) {
            case 0: CancellableSleep(milliseconds); break;
            case 1: CancellableWaitForSingleObject(m_event, milliseconds); break;
            case 2: {
                const HANDLE handles[] = {m_event, m_event, m_event};
                CancellableWaitForMultipleObjects(3, handles, milliseconds);
                break;
            }
            default: WaitForCondition(); break;
        }
    }

  private:
    static void WaitForCondition() {
        const auto state = std::make_shared<std::pair<std::recursive_mutex, std::condition_variable_any>>();
        std::unique_lock lock(state->first);
        CancellableConditionWait(state->first, state->second, state, [&] { state->second.wait(lock); });
    }

    const HANDLE m_event;
};

TEST(CancelStorm, NoRequestIsMissed) {
    const StressRun stress(10);
    const Never never;  // outlives the tasks that wait for it
    const ConcurrencyLifetime lifetime;
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        std::vector<Task> tasks(kStormTasks);
        std::vector<std::shared_ptr<FutureImpl<void>>> futures(kStormTasks);
        for (std::size_t i = 0; i < kStormTasks; ++i) {
            const auto body = [&never, random = stress.Generator(number, 1000 + i)]() mutable {
                for (;;) {
                    Linger(random);
                    never.Wait(random, Choose(random, 2) == 0 ? INFINITE : static_cast<DWORD>(Choose(random, 3)));
                }
            };
            tasks[i] = MakeTask(L"blocked", body, futures[i]);
            GlobalThreadPool::LaunchInNewThread(tasks[i]);
        }
        {
            std::list<BackgroundCall> cancellers;
            for (std::size_t thread = 0; thread < kCancellers; ++thread) {
                cancellers.emplace_back([&, thread] {
                    Random random = stress.Generator(number, thread);
                    std::vector<Task> order = tasks;
                    std::shuffle(order.begin(), order.end(), random);
                    for (Task& task : order) {
                        Linger(random);
                        task.Cancel();
                    }
                });
            }
            for (const BackgroundCall& canceller : cancellers) {
                ASSERT_TRUE(canceller.Ends());
            }
        }
        ASSERT_TRUE(Eventually([&] {
            return std::all_of(futures.begin(), futures.end(),
                               [](const auto& future) { return future->IsCancelled(); });
        }));
    }
}

// Without leaving the processor: a pause would let the moment pass.
void Spin(std::chrono::microseconds time) {
    for (const Stopwatch stopwatch; stopwatch.Elapsed() < time;) {
    }
}

TimePoint AfterPatience() {
    return std::chrono::time_point_cast<Duration>(TimePoint::clock::now()) + kPatience;
}

bool SpinUntil(const std::atomic<bool>& flag) {
    for (const Stopwatch stopwatch; !flag && stopwatch.Elapsed() < kPatience;) {
    }
    return flag;
}

// The request comes while the task registers itself, looks for a request and falls asleep.
TEST(CancelStorm, RequestAtTheMomentOfBlockingIsNotMissed) {
    constexpr int kRequests = 200;
    const StressRun stress(10);
    const Never never;  // outlives the tasks that wait for it
    const ConcurrencyLifetime lifetime;
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        Random canceller = stress.Generator(number, 0);
        Random blocked = stress.Generator(number, 1);
        for (int request = 0; request < kRequests; ++request) {
            const auto aboutToBlock = std::make_shared<std::atomic<bool>>(false);
            std::shared_ptr<FutureImpl<void>> future;
            Task task = MakeTask(
                L"blocks",
                [&never, &blocked, aboutToBlock] {
                    *aboutToBlock = true;
                    for (;;) {
                        never.Wait(blocked, INFINITE);
                    }
                },
                future);
            GlobalThreadPool::Queue(task);
            ASSERT_TRUE(SpinUntil(*aboutToBlock));
            Spin(std::chrono::microseconds(Choose(canceller, 60)));
            task.Cancel();
            ASSERT_TRUE(future->TimedWait(AfterPatience()));
            ASSERT_TRUE(future->IsCancelled());
        }
    }
}

}  // namespace
