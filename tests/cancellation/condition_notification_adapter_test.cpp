#include "concurrency/cancellation/condition_notification_adapter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Adapter = ConditionNotificationAdapter<std::recursive_mutex>;

// A waiter's own mutex and condition.
struct Waiter {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    bool ready = false;  // guarded by mutex
};

bool IsUnlockedAtLast(std::recursive_mutex& mutex) {
    return Eventually([&] {
        const std::unique_lock lock(mutex, std::try_to_lock);
        return lock.owns_lock();
    });
}

TEST(ConditionNotificationAdapter, HoldsTheCallersMutexAndConditionInThisOrder) {
    Waiter waiter;
    const auto adapter = Adapter::CreateInstance(waiter.mutex, waiter.condition);
    void* fields[2];

    std::memcpy(fields, reinterpret_cast<const char*>(adapter.get()) + sizeof(void*), sizeof(fields));

    EXPECT_EQ(fields[0], &waiter.mutex);
    EXPECT_EQ(fields[1], &waiter.condition);
}

TEST(ConditionNotificationAdapter, NotifyUnlocksBeforeItTakesTheCallersMutexAndSetsTheFlagUnderIt) {
    Waiter waiter;
    const auto adapter = Adapter::CreateInstance(waiter.mutex, waiter.condition);
    Request request;
    request.lock.unlock();
    std::unique_lock callers(waiter.mutex);
    Gate locked;
    Thread requester([&] {
        request.lock.lock();
        locked.Open();
        adapter->Notify(request.lock, request.requested);
    });
    locked.Wait();

    EXPECT_TRUE(IsUnlockedAtLast(request.mutex));
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(std::atomic_ref(request.requested).load());

    callers.unlock();
    requester.join();
    EXPECT_TRUE(request.requested);
    EXPECT_TRUE(IsFree(waiter.mutex));
}

TEST(ConditionNotificationAdapter, NotifyUnlocksBeforeItSetsTheFlag) {
    Waiter waiter;
    const auto adapter = Adapter::CreateInstance(waiter.mutex, waiter.condition);
    Request request;
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    try {
        adapter->Notify(unlocked, request.requested);
        FAIL() << "a lock that owns nothing was unlocked";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
    }
    EXPECT_FALSE(request.requested);
    EXPECT_TRUE(IsFree(waiter.mutex));
}

TEST(ConditionNotificationAdapter, NotifyWakesEveryWaiterOfTheCondition) {
    Waiter waiter;
    constexpr int kWaiters = 3;
    Adapter adapter(waiter.mutex, waiter.condition);
    int waiting = 0;
    std::atomic<int> woken = 0;
    std::vector<Thread> waiters;
    for (int index = 0; index < kWaiters; ++index) {
        waiters.emplace_back([&] {
            std::unique_lock lock(waiter.mutex);
            ++waiting;
            waiter.condition.wait(lock);
            ++woken;
        });
    }
    ASSERT_TRUE(Eventually([&] {
        const std::lock_guard lock(waiter.mutex);
        return waiting == kWaiters;
    }));

    Request request;
    adapter.Notify(request.lock, request.requested);

    EXPECT_TRUE(Eventually([&] { return woken == kWaiters; }, 20s));
    waiter.condition.notify_all();  // for the sake of the join, should that have failed
    for (Thread& thread : waiters) {
        thread.join();
    }
}

TEST(ConditionNotificationAdapter, CreationRegistersItAndASecondReplacesIt) {
    Waiter waiter;
    const RunScope run;
    std::recursive_mutex otherMutex;
    std::condition_variable_any otherCondition;
    const auto first = Adapter::CreateInstance(otherMutex, otherCondition);
    const auto second = Adapter::CreateInstance(waiter.mutex, waiter.condition);
    // Whoever is notified must wait here.
    std::unique_lock firstHeld(otherMutex);
    std::unique_lock secondHeld(waiter.mutex);
    const RequestOnAnotherThread request(run);

    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(request.HasReturned());
    secondHeld.unlock();

    EXPECT_TRUE(request.Returns());
    firstHeld.unlock();
}

TEST(ConditionNotificationAdapter, CreatorAloneOwnsIt) {
    Waiter waiter;
    const RunScope run;
    auto adapter = Adapter::CreateInstance(waiter.mutex, waiter.condition);
    EXPECT_EQ(adapter.use_count(), 1);
    std::unique_lock held(waiter.mutex);

    adapter.reset();
    const RequestOnAnotherThread request(run);

    EXPECT_TRUE(request.Returns());
    held.unlock();
}

TEST(ConditionNotificationAdapter, KeepsAliveWhatItIsGivenUntilItDies) {
    Waiter waiter;
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;
    auto adapter = Adapter::CreateInstance(waiter.mutex, waiter.condition, std::move(kept));
    EXPECT_FALSE(observer.expired());

    adapter.reset();

    EXPECT_TRUE(observer.expired());
}

TEST(ConditionNotificationAdapter, WaitReturnsWhatTheWaitReturnsWhenNothingIsRequested) {
    Waiter waiter;
    const RunScope run;

    EXPECT_EQ(CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [] { return std::cv_status::timeout; }),
              std::cv_status::timeout);
    EXPECT_EQ(
        CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [] { return std::cv_status::no_timeout; }),
        std::cv_status::no_timeout);
}

TEST(ConditionNotificationAdapter, WaitThatReturnsNothingIsCalledOnce) {
    Waiter waiter;
    const RunScope run;
    int waits = 0;

    CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [&] { ++waits; });

    EXPECT_EQ(waits, 1);
}

TEST(ConditionNotificationAdapter, RequestBeforeTheWaitThrowsWithoutWaiting) {
    Waiter waiter;
    const RunScope run;
    run.Cancellation().RequestCancel();
    bool waited = false;

    EXPECT_THROW(CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [&] { return waited = true; }),
                 CancelRequestedException);

    EXPECT_FALSE(waited);
}

TEST(ConditionNotificationAdapter, RequestBetweenTheRegistrationAndTheTestThrowsWithoutWaiting) {
    Waiter waiter;
    const RequestAtTheRegistration run;
    bool waited = false;

    EXPECT_THROW(CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [&] { return waited = true; }),
                 CancelRequestedException);

    EXPECT_FALSE(waited);
}

TEST(ConditionNotificationAdapter, RequestDuringTheWaitThrowsAfterIt) {
    Waiter waiter;
    const RunScope run;

    EXPECT_THROW(CancellableConditionWait(waiter.mutex, waiter.condition, nullptr,
                                          [&] {
                                              run.Cancellation().RequestCancel();
                                              return true;
                                          }),
                 CancelRequestedException);
}

TEST(ConditionNotificationAdapter, AdapterIsRegisteredDuringTheWaitAndGoneAfterIt) {
    Waiter waiter;
    const RunScope run;
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;

    const bool keptDuringTheWait =
        CancellableConditionWait(waiter.mutex, waiter.condition, std::move(kept), [&] { return !observer.expired(); });

    EXPECT_TRUE(keptDuringTheWait);
    EXPECT_TRUE(observer.expired());
    std::unique_lock held(waiter.mutex);  // a notifier that was still there would wait here
    const RequestOnAnotherThread request(run);
    EXPECT_TRUE(request.Returns());
    held.unlock();
}

TEST(ConditionNotificationAdapter, AdapterIsGoneWhenTheWaitThrows) {
    Waiter waiter;
    const RunScope run;
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;

    EXPECT_THROW(CancellableConditionWait(waiter.mutex, waiter.condition, std::move(kept), []() -> bool { throw 1; }),
                 int);

    EXPECT_TRUE(observer.expired());
}

// As the fair mutex waits: a loop around a wait on one's own condition.
TEST(ConditionNotificationAdapter, CancelWakesATaskThatLoopsAroundItsOwnCondition) {
    Waiter waiter;
    TaskThread task([&] {
        std::unique_lock lock(waiter.mutex);
        while (!waiter.ready) {
            CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [&] { waiter.condition.wait(lock); });
        }
    });

    task.Cancel();

    EXPECT_TRUE(task.EndedCancelled());
    EXPECT_TRUE(IsFree(waiter.mutex));
}

TEST(ConditionNotificationAdapter, ProgressEndsTheLoopWithoutACancellation) {
    Waiter waiter;
    TaskThread task([&] {
        std::unique_lock lock(waiter.mutex);
        while (!waiter.ready) {
            CancellableConditionWait(waiter.mutex, waiter.condition, nullptr, [&] { waiter.condition.wait(lock); });
        }
    });
    {
        const std::lock_guard lock(waiter.mutex);
        waiter.ready = true;
    }
    waiter.condition.notify_all();

    EXPECT_TRUE(task.EndedNormally());
}

}  // namespace
