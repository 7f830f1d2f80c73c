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

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Adapter = ConditionNotificationAdapter<std::recursive_mutex>;

// A waiter's own mutex and condition.
class ConditionNotifier : public testing::Test {
  protected:
    bool OtherThreadHasUnlocked(std::recursive_mutex& mutex) {
        return Eventually([&] {
            const std::unique_lock lock(mutex, std::try_to_lock);
            return lock.owns_lock();
        });
    }

    std::recursive_mutex m_mutex;
    std::condition_variable_any m_condition;
    bool m_ready = false;  // under m_mutex
};

TEST_F(ConditionNotifier, HoldsTheCallersMutexAndConditionInThisOrder) {
    const auto adapter = Adapter::CreateInstance(m_mutex, m_condition);
    void* fields[2];

    std::memcpy(fields, reinterpret_cast<const char*>(adapter.get()) + sizeof(void*), sizeof(fields));

    EXPECT_EQ(fields[0], &m_mutex);
    EXPECT_EQ(fields[1], &m_condition);
}

TEST_F(ConditionNotifier, NotifyUnlocksBeforeItTakesTheCallersMutexAndSetsTheFlagUnderIt) {
    const auto adapter = Adapter::CreateInstance(m_mutex, m_condition);
    Request request;
    request.lock.unlock();
    std::unique_lock callers(m_mutex);
    Gate locked;
    std::thread requester([&] {
        request.lock.lock();
        locked.Open();
        adapter->Notify(request.lock, request.requested);
    });
    locked.Wait();

    EXPECT_TRUE(OtherThreadHasUnlocked(request.mutex));
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(std::atomic_ref(request.requested).load());

    callers.unlock();
    requester.join();
    EXPECT_TRUE(request.requested);
    EXPECT_TRUE(IsFree(m_mutex));
}

TEST_F(ConditionNotifier, NotifyUnlocksBeforeItSetsTheFlag) {
    const auto adapter = Adapter::CreateInstance(m_mutex, m_condition);
    Request request;
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    try {
        adapter->Notify(unlocked, request.requested);
        FAIL() << "a lock that owns nothing was unlocked";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
    }
    EXPECT_FALSE(request.requested);
    EXPECT_TRUE(IsFree(m_mutex));
}

TEST_F(ConditionNotifier, NotifyWakesEveryWaiterOfTheCondition) {
    constexpr int kWaiters = 3;
    Adapter adapter(m_mutex, m_condition);
    int waiting = 0;
    std::atomic<int> woken = 0;
    std::vector<std::thread> waiters;
    for (int index = 0; index < kWaiters; ++index) {
        waiters.emplace_back([&] {
            std::unique_lock lock(m_mutex);
            ++waiting;
            m_condition.wait(lock);
            ++woken;
        });
    }
    ASSERT_TRUE(Eventually([&] {
        const std::lock_guard lock(m_mutex);
        return waiting == kWaiters;
    }));

    Request request;
    adapter.Notify(request.lock, request.requested);

    EXPECT_TRUE(Eventually([&] { return woken == kWaiters; }));
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST_F(ConditionNotifier, CreationRegistersItAndASecondReplacesIt) {
    const RunScope run;
    std::recursive_mutex otherMutex;
    std::condition_variable_any otherCondition;
    const auto first = Adapter::CreateInstance(otherMutex, otherCondition);
    const auto second = Adapter::CreateInstance(m_mutex, m_condition);
    const std::lock_guard firstHeld(otherMutex);  // whoever notified the first would wait here

    std::thread([&] { run.Cancellation().RequestCancel(); }).join();

    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST_F(ConditionNotifier, CreatorAloneOwnsIt) {
    const RunScope run;
    auto adapter = Adapter::CreateInstance(m_mutex, m_condition);
    EXPECT_EQ(adapter.use_count(), 1);
    const std::lock_guard held(m_mutex);

    adapter.reset();
    std::thread([&] { run.Cancellation().RequestCancel(); }).join();

    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST_F(ConditionNotifier, KeepsAliveWhatItIsGivenUntilItDies) {
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;
    auto adapter = Adapter::CreateInstance(m_mutex, m_condition, std::move(kept));
    EXPECT_FALSE(observer.expired());

    adapter.reset();

    EXPECT_TRUE(observer.expired());
}

TEST_F(ConditionNotifier, WaitReturnsWhatTheWaitReturnsWhenNothingIsRequested) {
    const RunScope run;

    EXPECT_EQ(CancellableConditionWait(m_mutex, m_condition, nullptr, [] { return std::cv_status::timeout; }),
              std::cv_status::timeout);
    EXPECT_EQ(CancellableConditionWait(m_mutex, m_condition, nullptr, [] { return std::cv_status::no_timeout; }),
              std::cv_status::no_timeout);
}

TEST_F(ConditionNotifier, RequestBeforeTheWaitThrowsWithoutWaiting) {
    const RunScope run;
    run.Cancellation().RequestCancel();
    bool waited = false;

    EXPECT_THROW(CancellableConditionWait(m_mutex, m_condition, nullptr, [&] { return waited = true; }),
                 CancelRequestedException);

    EXPECT_FALSE(waited);
}

TEST_F(ConditionNotifier, RequestDuringTheWaitThrowsAfterIt) {
    const RunScope run;

    EXPECT_THROW(CancellableConditionWait(m_mutex, m_condition, nullptr,
                                          [&] {
                                              run.Cancellation().RequestCancel();
                                              return true;
                                          }),
                 CancelRequestedException);
}

TEST_F(ConditionNotifier, AdapterIsRegisteredDuringTheWaitAndGoneAfterIt) {
    const RunScope run;
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;

    const bool keptDuringTheWait =
        CancellableConditionWait(m_mutex, m_condition, std::move(kept), [&] { return !observer.expired(); });

    EXPECT_TRUE(keptDuringTheWait);
    EXPECT_TRUE(observer.expired());
    const std::lock_guard held(m_mutex);  // a notifier that was still there would wait here
    std::thread([&] { run.Cancellation().RequestCancel(); }).join();
    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST_F(ConditionNotifier, AdapterIsGoneWhenTheWaitThrows) {
    const RunScope run;
    auto kept = std::make_shared<int>();
    const std::weak_ptr<int> observer = kept;

    EXPECT_THROW(CancellableConditionWait(m_mutex, m_condition, std::move(kept), []() -> bool { throw 1; }), int);

    EXPECT_TRUE(observer.expired());
}

// As the fair mutex waits: a loop around a wait on one's own condition.
TEST_F(ConditionNotifier, CancelWakesATaskThatLoopsAroundItsOwnCondition) {
    TaskThread waiter([&] {
        std::unique_lock lock(m_mutex);
        while (!m_ready) {
            CancellableConditionWait(m_mutex, m_condition, nullptr, [&] {
                m_condition.wait(lock);
                return true;
            });
        }
    });

    waiter.Cancel();

    EXPECT_TRUE(waiter.EndedCancelled());
    EXPECT_TRUE(IsFree(m_mutex));
}

TEST_F(ConditionNotifier, ProgressEndsTheLoopWithoutACancellation) {
    TaskThread waiter([&] {
        std::unique_lock lock(m_mutex);
        while (!m_ready) {
            CancellableConditionWait(m_mutex, m_condition, nullptr, [&] {
                m_condition.wait(lock);
                return true;
            });
        }
    });
    {
        const std::lock_guard lock(m_mutex);
        m_ready = true;
    }
    m_condition.notify_all();

    EXPECT_TRUE(waiter.EndedNormally());
}

}  // namespace
