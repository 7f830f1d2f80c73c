#include "concurrency/cancellation/sleep_notification_adapter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using AdapterPointer = std::shared_ptr<AbstractCancelNotifier>;

// The adapter's fields, in their order.
struct Fields {
    void* slots;
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
};
static_assert(sizeof(SleepNotificationAdapter) == sizeof(Fields));

SleepNotificationAdapter& AsSleepAdapter(const AdapterPointer& notifier) {
    return static_cast<SleepNotificationAdapter&>(*notifier);
}

std::recursive_mutex& OwnMutex(const AdapterPointer& adapter) {
    return reinterpret_cast<Fields*>(&AsSleepAdapter(adapter))->mutex;
}

bool TryOnce(std::recursive_mutex& mutex) {
    const std::unique_lock lock(mutex, std::try_to_lock);
    return lock.owns_lock();
}

TEST(SleepNotificationAdapter, RequestDuringAnEndlessSleepMakesItThrow) {
    std::atomic<bool> threw = false;
    AdapterPointer adapter;
    Gate created;
    TaskThread sleeper([&] {
        adapter = SleepNotificationAdapter::CreateInstance();
        created.Open();
        try {
            AsSleepAdapter(adapter).Sleep(INFINITE);
        } catch (const CancelRequestedException&) {
            threw = true;
            throw;
        }
    });
    created.Wait();

    sleeper.Cancel();

    EXPECT_TRUE(sleeper.EndedCancelled());
    EXPECT_TRUE(threw);
    EXPECT_TRUE(IsFree(OwnMutex(adapter)));
}

// One wait without a loop: a wake-up that nobody asked for ends the sleep.
TEST(SleepNotificationAdapter, AnyWakeUpEndsTheSleepWithoutAnException) {
    AdapterPointer adapter;
    Gate created;
    TaskThread sleeper([&] {
        adapter = SleepNotificationAdapter::CreateInstance();
        created.Open();
        AsSleepAdapter(adapter).Sleep(INFINITE);
    });
    created.Wait();

    // Again and again: the first may come before the sleep has begun.
    ASSERT_TRUE(Eventually([&] {
        Request unrelated;
        adapter->Notify(unrelated.lock, unrelated.requested);
        return !sleeper.IsRunning();
    }));

    EXPECT_TRUE(sleeper.EndedNormally());
}

// It tests the flag after that, so under the mutex, too. Or a request that comes between the test and the wait would wake nobody.
TEST(SleepNotificationAdapter, SleepLooksForItsRunOnceUnderItsOwnMutex) {
    const RunScopeOf<WatchedFuture> run;
    const auto adapter = SleepNotificationAdapter::CreateInstance();
    std::vector<bool> wasFree;
    run.GetFuture()->whenAsked = [&] { wasFree.push_back(IsFree(OwnMutex(adapter))); };

    AsSleepAdapter(adapter).Sleep(1);

    EXPECT_EQ(wasFree, std::vector<bool>{false});
}

TEST(SleepNotificationAdapter, NotifyWakesEverySleeper) {
    const auto adapter = SleepNotificationAdapter::CreateInstance();
    std::atomic<int> woken = 0;
    Gate tested[2];  // each keeps the mutex from here until it sleeps
    std::vector<Thread> sleepers;
    for (Gate& gate : tested) {
        sleepers.emplace_back([&] {
            const RunScopeOf<WatchedFuture> run;
            run.GetFuture()->whenAsked = [&gate] { gate.Open(); };
            AsSleepAdapter(adapter).Sleep(INFINITE);
            ++woken;
        });
        gate.Wait();
    }

    Request request;
    adapter->Notify(request.lock, request.requested);

    EXPECT_TRUE(Eventually([&] { return woken == 2; }, 20s));
    Request another;  // for the sake of the join, should that have failed
    adapter->Notify(another.lock, another.requested);
}

TEST(SleepNotificationAdapter, UnlocksBeforeItTakesItsOwnMutexAndSetsTheFlagUnderIt) {
    const auto adapter = SleepNotificationAdapter::CreateInstance();
    Request request;
    request.lock.unlock();
    std::unique_lock own(OwnMutex(adapter));
    Gate locked;
    Thread requester([&] {
        request.lock.lock();
        locked.Open();
        adapter->Notify(request.lock, request.requested);
    });
    locked.Wait();

    EXPECT_TRUE(Eventually([&] { return TryOnce(request.mutex); }));
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(std::atomic_ref(request.requested).load());

    own.unlock();
    requester.join();
    EXPECT_TRUE(request.requested);
    EXPECT_TRUE(IsFree(OwnMutex(adapter)));
}

TEST(SleepNotificationAdapter, UnlocksBeforeItSetsTheFlag) {
    const auto adapter = SleepNotificationAdapter::CreateInstance();
    Request request;
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    try {
        adapter->Notify(unlocked, request.requested);
        FAIL() << "a lock that owns nothing was unlocked";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
    }
    EXPECT_FALSE(request.requested);
    EXPECT_TRUE(IsFree(OwnMutex(adapter)));
}

TEST(SleepNotificationAdapter, CreationRegistersItAndASecondReplacesIt) {
    const RunScope run;
    const auto first = SleepNotificationAdapter::CreateInstance();
    const auto second = SleepNotificationAdapter::CreateInstance();
    // Whoever is notified must wait here.
    std::unique_lock firstHeld(OwnMutex(first));
    std::unique_lock secondHeld(OwnMutex(second));
    const RequestOnAnotherThread request(run);

    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(request.HasReturned());
    secondHeld.unlock();

    EXPECT_TRUE(request.Returns());
    firstHeld.unlock();
}

TEST(SleepNotificationAdapter, CreatorAloneOwnsIt) {
    const RunScope run;
    auto adapter = SleepNotificationAdapter::CreateInstance();
    EXPECT_EQ(adapter.use_count(), 1);

    adapter.reset();

    EXPECT_NO_THROW(run.Cancellation().RequestCancel());
}

TEST(SleepNotificationAdapter, IsMadeByCreateInstanceOnly) {
    static_assert(!std::is_default_constructible_v<SleepNotificationAdapter>);
    static_assert(std::is_base_of_v<AbstractCancelNotifier, SleepNotificationAdapter>);
}

// The platform's waits are cut modulo 49.7 days; this sleep is cut to ten days before that.
TEST(SleepNotificationAdapter, SleepOfMoreThanTenDaysIsCutToTenDays) {
    const RecordedSleeps sleeps;
    const auto adapter = SleepNotificationAdapter::CreateInstance();

    for (const DWORD milliseconds : {863'999'999UL, 864'000'000UL, 864'000'001UL, 4'000'000'000UL, 0xFFFFFFFEUL}) {
        const DWORD expected = std::min(milliseconds, DWORD{864'000'000});
        AsSleepAdapter(adapter).Sleep(milliseconds);
        ASSERT_FALSE(sleeps.List().empty());
        EXPECT_LE(sleeps.List().back(), expected) << milliseconds;
        EXPECT_GT(sleeps.List().back(), expected - 1'000) << milliseconds;
    }
}

}  // namespace
