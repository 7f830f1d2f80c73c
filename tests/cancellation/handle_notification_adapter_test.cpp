#include "concurrency/cancellation/handle_notification_adapter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <type_traits>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

HandleNotificationAdapter& AsHandleAdapter(const std::shared_ptr<AbstractCancelNotifier>& notifier) {
    return static_cast<HandleNotificationAdapter&>(*notifier);
}

bool TakeSignal(HANDLE event) {
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

struct EventArguments {
    bool hasSecurity;
    BOOL manualReset;
    BOOL initialState;
    bool hasName;
};
std::vector<EventArguments> g_createdEvents;

TEST(HandleNotificationAdapter, CreatesAnUnnamedAutoResetEventThatIsNotSignalled) {
    const ImportPatch recorded(
        LibraryUnderTest(), "CreateEventW",
        +[](LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name) -> HANDLE {
            g_createdEvents.push_back({security != nullptr, manualReset, initialState, name != nullptr});
            return CreateEventW(security, manualReset, initialState, name);
        });

    const auto adapter = HandleNotificationAdapter::CreateInstance();

    ASSERT_EQ(g_createdEvents.size(), 1U);
    EXPECT_FALSE(g_createdEvents[0].hasSecurity);
    EXPECT_FALSE(g_createdEvents[0].manualReset);
    EXPECT_FALSE(g_createdEvents[0].initialState);
    EXPECT_FALSE(g_createdEvents[0].hasName);
}

TEST(HandleNotificationAdapter, EventIsSignalledByNotifyOnceAndResetByTheWait) {
    const auto adapter = HandleNotificationAdapter::CreateInstance();
    const HANDLE event = AsHandleAdapter(adapter).GetHandle();
    EXPECT_FALSE(TakeSignal(event));
    Request request;

    adapter->Notify(request.lock, request.requested);

    EXPECT_TRUE(TakeSignal(event));
    EXPECT_FALSE(TakeSignal(event));
}

Request* g_request = nullptr;
bool g_flagWasSet = false;
bool g_lockWasFree = false;

TEST(HandleNotificationAdapter, SetsTheFlagAndUnlocksBeforeItSignalsTheEvent) {
    Request request;
    g_request = &request;
    const auto adapter = HandleNotificationAdapter::CreateInstance();
    const ImportPatch observed(
        LibraryUnderTest(), "SetEvent", +[](HANDLE event) {
            g_flagWasSet = g_request->requested;
            g_lockWasFree = !g_request->lock.owns_lock() && IsFree(g_request->mutex);
            return SetEvent(event);
        });

    adapter->Notify(request.lock, request.requested);

    EXPECT_TRUE(TakeSignal(AsHandleAdapter(adapter).GetHandle()));
    EXPECT_TRUE(g_flagWasSet);
    EXPECT_TRUE(g_lockWasFree);
}

// Where the second step fails, the first has been taken and the third has not.
TEST(HandleNotificationAdapter, SetsTheFlagBeforeItUnlocks) {
    Request request;
    const auto adapter = HandleNotificationAdapter::CreateInstance();
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    try {
        adapter->Notify(unlocked, request.requested);
        FAIL() << "a lock that owns nothing was unlocked";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
    }
    EXPECT_TRUE(request.requested);
    EXPECT_FALSE(TakeSignal(AsHandleAdapter(adapter).GetHandle()));
}

TEST(HandleNotificationAdapter, CreationRegistersItWithTheCurrentRun) {
    const RunScope run;
    const auto adapter = HandleNotificationAdapter::CreateInstance();

    run.Cancellation().RequestCancel();

    EXPECT_TRUE(TakeSignal(AsHandleAdapter(adapter).GetHandle()));
    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST(HandleNotificationAdapter, SecondAdapterOfARunIsTheOnlyOneRegistered) {
    const RunScope run;
    const auto first = HandleNotificationAdapter::CreateInstance();
    const auto second = HandleNotificationAdapter::CreateInstance();

    run.Cancellation().RequestCancel();

    EXPECT_FALSE(TakeSignal(AsHandleAdapter(first).GetHandle()));
    EXPECT_TRUE(TakeSignal(AsHandleAdapter(second).GetHandle()));
}

TEST(HandleNotificationAdapter, SecondRequestSignalsTheEventAgain) {
    const RunScope run;
    const auto adapter = HandleNotificationAdapter::CreateInstance();
    run.Cancellation().RequestCancel();
    ASSERT_TRUE(TakeSignal(AsHandleAdapter(adapter).GetHandle()));

    run.Cancellation().RequestCancel();

    EXPECT_TRUE(TakeSignal(AsHandleAdapter(adapter).GetHandle()));
}

TEST(HandleNotificationAdapter, WithoutACurrentTaskItIsUsableAllTheSame) {
    const auto adapter = HandleNotificationAdapter::CreateInstance();

    EXPECT_NE(AsHandleAdapter(adapter).GetHandle(), nullptr);
    EXPECT_TRUE(SetEvent(AsHandleAdapter(adapter).GetHandle()));
    EXPECT_EQ(adapter.use_count(), 1);
}

TEST(HandleNotificationAdapter, CreatorAloneOwnsIt) {
    const RunScope run;
    auto adapter = HandleNotificationAdapter::CreateInstance();
    EXPECT_EQ(adapter.use_count(), 1);

    adapter.reset();

    EXPECT_NO_THROW(run.Cancellation().RequestCancel());
}

// What is closed instead of being closed.
class RecordedCloses {
  public:
    RecordedCloses() { g_closed.clear(); }

    const std::vector<HANDLE>& List() const { return g_closed; }

  private:
    static BOOL WINAPI Record(HANDLE handle) {
        g_closed.push_back(handle);
        return TRUE;
    }

    static inline std::vector<HANDLE> g_closed;
    ImportPatch m_patch{LibraryUnderTest(), "CloseHandle", &Record};
};

TEST(HandleNotificationAdapter, ClosesItsEventWhenItDies) {
    auto adapter = HandleNotificationAdapter::CreateInstance();
    const HANDLE event = AsHandleAdapter(adapter).GetHandle();
    const RecordedCloses closes;

    adapter.reset();

    EXPECT_EQ(closes.List(), std::vector<HANDLE>{event});
    CloseHandle(event);
}

// Kept as it is exported: a copy must not outlive its original.
TEST(HandleNotificationAdapter, CopySharesTheHandleAndBothCloseIt) {
    auto adapter = HandleNotificationAdapter::CreateInstance();
    const HANDLE event = AsHandleAdapter(adapter).GetHandle();
    const RecordedCloses closes;

    {
        const HandleNotificationAdapter copy(AsHandleAdapter(adapter));
        EXPECT_EQ(copy.GetHandle(), event);
    }
    adapter.reset();

    EXPECT_EQ(closes.List(), (std::vector<HANDLE>{event, event}));
    CloseHandle(event);
}

TEST(HandleNotificationAdapter, FailedEventCreationIsNotDetected) {
    const RunScope run;
    const NoEvents noEvents;

    const auto adapter = HandleNotificationAdapter::CreateInstance();

    ASSERT_NE(adapter, nullptr);
    EXPECT_EQ(AsHandleAdapter(adapter).GetHandle(), nullptr);
    EXPECT_NO_THROW(run.Cancellation().RequestCancel());
    EXPECT_TRUE(run.Cancellation().IsRequested());
}

TEST(HandleNotificationAdapter, HoldsTheHandleAndNothingElse) {
    static_assert(sizeof(HandleNotificationAdapter) == sizeof(void*) + sizeof(HANDLE));
    static_assert(!std::is_default_constructible_v<HandleNotificationAdapter>);
    const auto adapter = HandleNotificationAdapter::CreateInstance();
    HANDLE stored = nullptr;

    std::memcpy(&stored, reinterpret_cast<const char*>(&AsHandleAdapter(adapter)) + sizeof(void*), sizeof(stored));

    EXPECT_EQ(stored, AsHandleAdapter(adapter).GetHandle());
}

}  // namespace
