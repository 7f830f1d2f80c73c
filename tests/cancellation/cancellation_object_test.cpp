#include "concurrency/cancellation/cancellation_object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/cancellation/notifiers.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// A request shows it to the notifier. Afterwards the object is requested and has no notifier.
std::recursive_mutex& MutexOf(CancellationObject& object) {
    std::recursive_mutex* mutex = nullptr;
    const auto notifier = std::make_shared<CallbackNotifier>(
        [&](std::unique_lock<std::recursive_mutex>& lock, bool&) { mutex = lock.mutex(); });
    object.RegisterNotifier(notifier);
    object.RequestCancel();
    object.RegisterNotifier({});
    return *mutex;
}

TEST(CancellationObject, StartsNeitherRequestedNorKillable) {
    CancellationObject object;

    EXPECT_FALSE(object.IsRequested());
    EXPECT_FALSE(object.GetKillable());
}

TEST(CancellationObject, ThreadIdIsThatOfTheConstructingThreadWhicheverThreadAsks) {
    std::unique_ptr<CancellationObject> object;
    DWORD constructingThread = 0;
    Thread([&] {
        constructingThread = ::GetCurrentThreadId();
        object = std::make_unique<CancellationObject>();
        EXPECT_EQ(object->GetThreadId(), constructingThread);
    }).join();

    EXPECT_EQ(object->GetThreadId(), constructingThread);
    EXPECT_NE(object->GetThreadId(), ::GetCurrentThreadId());
}

TEST(CancellationObject, ThreadIdIsReadWithoutTheMutex) {
    CancellationObject object;
    const std::lock_guard held(MutexOf(object));

    DWORD seen = 0;
    Thread([&] { seen = object.GetThreadId(); }).join();

    EXPECT_EQ(seen, ::GetCurrentThreadId());
}

TEST(CancellationObject, KillableCanBeSetAndCleared) {
    CancellationObject object;

    object.SetKillable(true);
    EXPECT_TRUE(object.GetKillable());

    object.SetKillable(false);
    EXPECT_FALSE(object.GetKillable());
}

TEST(CancellationObject, RequestWithoutANotifierOnlySetsTheFlag) {
    CancellationObject object;

    object.RequestCancel();

    EXPECT_TRUE(object.IsRequested());
    EXPECT_FALSE(object.GetKillable());
    EXPECT_TRUE(IsFree(MutexOf(object)));
}

TEST(CancellationObject, RequestedIsNeverReset) {
    CancellationObject object;
    object.RequestCancel();

    object.RegisterNotifier({});
    EXPECT_TRUE(object.IsRequested());
    object.SetKillable(true);
    object.SetKillable(false);
    EXPECT_TRUE(object.IsRequested());
    object.RequestCancel();
    EXPECT_TRUE(object.IsRequested());
}

TEST(CancellationObject, RequestHandsTheNotifierItsOwnLockedMutexAndItsOwnFlag) {
    CancellationObject object;
    bool called = false;
    const auto notifier =
        std::make_shared<CallbackNotifier>([&](std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
            called = true;
            EXPECT_TRUE(lock.owns_lock());
            EXPECT_FALSE(IsFree(*lock.mutex()));
            requested = false;
            EXPECT_FALSE(object.IsRequested());
            requested = true;
            EXPECT_TRUE(object.IsRequested());
            lock.unlock();
            EXPECT_TRUE(IsFree(*lock.mutex()));
        });
    object.RegisterNotifier(notifier);

    object.RequestCancel();

    EXPECT_TRUE(called);
    EXPECT_TRUE(IsFree(MutexOf(object)));
}

TEST(CancellationObject, FlagIsSetBeforeTheNotifierIsCalled) {
    CancellationObject object;
    bool seen = false;
    const auto notifier = std::make_shared<CallbackNotifier>(
        [&seen](std::unique_lock<std::recursive_mutex>&, bool& requested) { seen = requested; });
    object.RegisterNotifier(notifier);

    object.RequestCancel();

    EXPECT_TRUE(seen);
}

TEST(CancellationObject, RequestUnlocksWhenTheNotifierHasNot) {
    CancellationObject object;
    const auto notifier = std::make_shared<CallbackNotifier>([](std::unique_lock<std::recursive_mutex>&, bool&) {});
    object.RegisterNotifier(notifier);

    object.RequestCancel();

    EXPECT_TRUE(IsFree(MutexOf(object)));
}

// The notifier goes first, the lock second: a notifier that kept the lock is destroyed under it.
TEST(CancellationObject, NotifierWhoseOwnerLetsGoDuringTheCallDiesBeforeTheMutexIsFree) {
    CancellationObject object;
    std::recursive_mutex& mutex = MutexOf(object);
    bool freeAtDestruction = true;
    struct Tracked : CallbackNotifier {
        Tracked(Callback callback, std::function<void()> atEnd)
            : CallbackNotifier(std::move(callback)), m_atEnd(std::move(atEnd)) {}
        ~Tracked() override { m_atEnd(); }
        std::function<void()> m_atEnd;
    };
    std::shared_ptr<AbstractCancelNotifier> owner =
        std::make_shared<Tracked>([&owner](std::unique_lock<std::recursive_mutex>&, bool&) { owner.reset(); },
                                  [&] { freeAtDestruction = IsFree(mutex); });
    object.RegisterNotifier(owner);

    object.RequestCancel();

    EXPECT_FALSE(freeAtDestruction);
    EXPECT_TRUE(IsFree(mutex));
}

TEST(CancellationObject, NotifierIsKeptAliveWhileItIsCalled) {
    CancellationObject object;
    std::weak_ptr<AbstractCancelNotifier> observer;
    bool aliveAfterOwnerLetGo = false;
    std::shared_ptr<AbstractCancelNotifier> owner =
        std::make_shared<CallbackNotifier>([&](std::unique_lock<std::recursive_mutex>& lock, bool&) {
            lock.unlock();
            owner.reset();
            aliveAfterOwnerLetGo = !observer.expired();
        });
    observer = owner;
    object.RegisterNotifier(owner);

    object.RequestCancel();

    EXPECT_TRUE(aliveAfterOwnerLetGo);
    EXPECT_TRUE(observer.expired());
}

TEST(CancellationObject, RequestCallsNothingWhenTheOwnerHasReleasedTheNotifier) {
    CancellationObject object;
    int calls = 0;
    auto notifier =
        std::make_shared<CallbackNotifier>([&](std::unique_lock<std::recursive_mutex>&, bool&) { ++calls; });
    object.RegisterNotifier(notifier);
    notifier.reset();

    object.RequestCancel();

    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(object.IsRequested());
}

TEST(CancellationObject, SecondRequestNotifiesALiveNotifierAgain) {
    CancellationObject object;
    const auto notifier = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(notifier);

    object.RequestCancel();
    object.RequestCancel();

    EXPECT_EQ(notifier->Count(), 2);
}

TEST(CancellationObject, RegisteringTwiceKeepsOnlyTheSecondNotifier) {
    CancellationObject object;
    const auto first = std::make_shared<CountingNotifier>();
    const auto second = std::make_shared<CountingNotifier>();

    object.RegisterNotifier(first);
    object.RegisterNotifier(second);
    object.RequestCancel();

    EXPECT_EQ(first->Count(), 0);
    EXPECT_EQ(second->Count(), 1);
}

// Replaced is replaced: the first does not come back when the second dies.
TEST(CancellationObject, ExpiredSecondNotifierDoesNotBringTheFirstBack) {
    CancellationObject object;
    const auto first = std::make_shared<CountingNotifier>();
    auto second = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(first);
    object.RegisterNotifier(second);
    second.reset();

    object.RequestCancel();

    EXPECT_EQ(first->Count(), 0);
}

TEST(CancellationObject, RegisteringAnEmptyPointerLeavesNoNotifier) {
    CancellationObject object;
    const auto notifier = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(notifier);

    object.RegisterNotifier({});
    object.RequestCancel();

    EXPECT_EQ(notifier->Count(), 0);
}

TEST(CancellationObject, RegistrationDoesNotKeepTheNotifierAlive) {
    CancellationObject object;
    auto notifier = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(notifier);

    EXPECT_EQ(notifier.use_count(), 1);
}

TEST(CancellationObject, NotifierMayRegisterAnotherWhileItIsCalled) {
    CancellationObject object;
    const auto second = std::make_shared<CountingNotifier>();
    const auto first = std::make_shared<CallbackNotifier>(
        [&](std::unique_lock<std::recursive_mutex>&, bool&) { object.RegisterNotifier(second); });
    object.RegisterNotifier(first);

    object.RequestCancel();
    EXPECT_EQ(second->Count(), 0);

    object.RequestCancel();
    EXPECT_EQ(second->Count(), 1);
}

TEST(CancellationObject, WhatANotifierThrowsLeavesWithTheFlagSetAndTheMutexFree) {
    CancellationObject object;
    const auto notifier = std::make_shared<CallbackNotifier>(
        [](std::unique_lock<std::recursive_mutex>&, bool&) { throw std::runtime_error("cannot wake"); });
    object.RegisterNotifier(notifier);

    EXPECT_THROW(object.RequestCancel(), std::runtime_error);

    EXPECT_TRUE(object.IsRequested());
    EXPECT_TRUE(IsFree(MutexOf(object)));
}

TEST(CancellationObject, FlagsAreReadUnderTheMutex) {
    CancellationObject object;
    std::unique_lock held(MutexOf(object));
    std::atomic<int> answered = 0;
    Thread requested([&] { object.IsRequested(), ++answered; });
    Thread killable([&] { object.GetKillable(), ++answered; });
    Thread setting([&] { object.SetKillable(true), ++answered; });
    Thread registering([&] { object.RegisterNotifier({}), ++answered; });

    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(answered, 0);

    held.unlock();
    for (Thread* thread : {&requested, &killable, &setting, &registering}) {
        thread->join();
    }
    EXPECT_EQ(answered, 4);
}

// A wait inside another one takes its place and gives it back.
TEST(CancellationObject, ExchangedNotifierTakesThePlaceOfTheOneThatIsReturned) {
    CancellationObject object;
    const auto outer = std::make_shared<CountingNotifier>();
    const auto inner = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(outer);
    EXPECT_EQ(object.ExchangeNotifier(inner).lock(), outer);

    object.RequestCancel();

    EXPECT_EQ(outer->Count(), 0);
    EXPECT_EQ(inner->Count(), 1);
}

TEST(CancellationObject, RestoredNotifierIsToldOfLaterRequestsOnly) {
    CancellationObject object;
    const auto outer = std::make_shared<CountingNotifier>();
    const auto inner = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(inner);
    object.RestoreNotifier(outer);
    EXPECT_EQ(outer->Count(), 0);

    object.RequestCancel();

    EXPECT_EQ(outer->Count(), 1);
    EXPECT_EQ(inner->Count(), 0);
}

// The request found the inner one only.
TEST(CancellationObject, RestoredNotifierIsToldOfARequestThatItMissed) {
    CancellationObject object;
    const auto outer = std::make_shared<CountingNotifier>();
    object.RegisterNotifier(outer);
    const auto before = object.ExchangeNotifier({});
    object.RequestCancel();
    EXPECT_EQ(outer->Count(), 0);

    object.RestoreNotifier(before);

    EXPECT_EQ(outer->Count(), 1);
}

TEST(CancellationObject, RestoringANotifierThatIsGoneTellsNobody) {
    CancellationObject object;
    object.RequestCancel();
    EXPECT_NO_THROW(object.RestoreNotifier({}));
    EXPECT_TRUE(object.IsRequested());
}

}  // namespace
