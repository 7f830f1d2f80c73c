#include "concurrency/cancellation/future_notification_adapter.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <system_error>
#include <type_traits>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// A future that shows what is true when it is asked to cancel.
struct AskedFuture : FutureImpl<void> {
    explicit AskedFuture(Request& request) : m_request(request) {}

    void RequestCancel() override {
        ++count;
        flagWasSet = m_request.requested;
        lockWasFree = !m_request.lock.owns_lock() && IsFree(m_request.mutex);
    }

    int count = 0;
    bool flagWasSet = false;
    bool lockWasFree = false;

  private:
    Request& m_request;
};

TEST(FutureNotificationAdapter, SetsTheFlagAndUnlocksBeforeItAsksTheFutureToCancel) {
    Request request;
    const auto future = std::make_shared<AskedFuture>(request);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);

    adapter->Notify(request.lock, request.requested);

    EXPECT_EQ(future->count, 1);
    EXPECT_TRUE(future->flagWasSet);
    EXPECT_TRUE(future->lockWasFree);
}

// Where the second step fails, the first has been taken and the third has not.
TEST(FutureNotificationAdapter, SetsTheFlagBeforeItUnlocks) {
    Request request;
    const auto future = std::make_shared<AskedFuture>(request);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    try {
        adapter->Notify(unlocked, request.requested);
        FAIL() << "a lock that owns nothing was unlocked";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
    }
    EXPECT_TRUE(request.requested);
    EXPECT_EQ(future->count, 0);
}

TEST(FutureNotificationAdapter, LockWithoutAMutexIsRefused) {
    const auto adapter = FutureNotificationAdapter::CreateInstance({});
    std::unique_lock<std::recursive_mutex> none;
    bool requested = false;

    EXPECT_THROW(adapter->Notify(none, requested), std::system_error);
}

TEST(FutureNotificationAdapter, DestroyedFutureIsNotNotifiedAndNothingFails) {
    Request request;
    auto future = std::make_shared<AskedFuture>(request);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);
    future.reset();

    EXPECT_NO_THROW(adapter->Notify(request.lock, request.requested));

    EXPECT_TRUE(request.requested);
    EXPECT_FALSE(request.lock.owns_lock());
}

TEST(FutureNotificationAdapter, DoesNotKeepTheFutureAlive) {
    Request request;
    const auto future = std::make_shared<AskedFuture>(request);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);

    EXPECT_EQ(future.use_count(), 1);
}

TEST(FutureNotificationAdapter, CreationRegistersItWithTheCurrentRun) {
    const RunScope run;
    Request unused;
    const auto future = std::make_shared<AskedFuture>(unused);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);

    run.Cancellation().RequestCancel();

    EXPECT_EQ(future->count, 1);
    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST(FutureNotificationAdapter, IsReturnedWithoutACurrentTaskTooAndIsNeverNotifiedThen) {
    Request unused;
    const auto future = std::make_shared<AskedFuture>(unused);

    const auto adapter = FutureNotificationAdapter::CreateInstance(future);

    EXPECT_NE(adapter, nullptr);
    EXPECT_EQ(future->count, 0);
}

TEST(FutureNotificationAdapter, CreatorAloneOwnsIt) {
    const RunScope run;
    Request unused;
    const auto future = std::make_shared<AskedFuture>(unused);
    auto adapter = FutureNotificationAdapter::CreateInstance(future);
    EXPECT_EQ(adapter.use_count(), 1);

    adapter.reset();
    run.Cancellation().RequestCancel();

    EXPECT_EQ(future->count, 0);
}

TEST(FutureNotificationAdapter, CopyNotifiesTheSameFuture) {
    Request request;
    const auto future = std::make_shared<AskedFuture>(request);
    const auto adapter = FutureNotificationAdapter::CreateInstance(future);

    FutureNotificationAdapter copy(static_cast<FutureNotificationAdapter&>(*adapter));
    copy.Notify(request.lock, request.requested);

    EXPECT_EQ(future->count, 1);
    EXPECT_EQ(future.use_count(), 1);
}

TEST(FutureNotificationAdapter, AssignmentTakesOverTheFuture) {
    Request request;
    const auto first = std::make_shared<AskedFuture>(request);
    const auto second = std::make_shared<AskedFuture>(request);
    const auto ofFirst = FutureNotificationAdapter::CreateInstance(first);
    const auto ofSecond = FutureNotificationAdapter::CreateInstance(second);

    static_cast<FutureNotificationAdapter&>(*ofFirst) = static_cast<FutureNotificationAdapter&>(*ofSecond);
    ofFirst->Notify(request.lock, request.requested);

    EXPECT_EQ(first->count, 0);
    EXPECT_EQ(second->count, 1);
}

TEST(FutureNotificationAdapter, HoldsOneWeakPointerAndIsMadeByCreateInstanceOnly) {
    struct Fields {
        void* slots;
        std::weak_ptr<FutureState> future;
    };
    static_assert(sizeof(FutureNotificationAdapter) == sizeof(Fields));
    static_assert(!std::is_constructible_v<FutureNotificationAdapter, std::weak_ptr<FutureState>>);
    static_assert(!std::is_default_constructible_v<FutureNotificationAdapter>);
    static_assert(std::is_base_of_v<AbstractCancelNotifier, FutureNotificationAdapter>);
}

TEST(FutureNotificationAdapter, CancellingATaskCancelsTheOneItHasPassedItsRequestOnTo) {
    TaskThread target([] { Orvane::CancellableSleep(INFINITE); });
    Gate registered;
    TaskThread waiting([&] {
        const auto adapter = FutureNotificationAdapter::CreateInstance(target.Future());
        registered.Open();
        target.Future()->Wait();
        CancellationPoint();  // a wait that finds the other run cancelled already does not look at its own
    });
    registered.Wait();

    waiting.Cancel();

    EXPECT_TRUE(target.EndedCancelled());
    EXPECT_TRUE(waiting.EndedCancelled());
}

}  // namespace
