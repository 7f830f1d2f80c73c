// When the handle waits' notifier is registered, and in which order it passes a request on.
#include "concurrency/cancellation/wait_event.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Or a request that comes in between would reach nobody, and the wait would not end.
TEST(WaitEvent, IsRegisteredBeforeTheFlagIsTested) {
    const Event silent;
    {
        const RequestAtTheRegistration run;
        EXPECT_THROW(CancellableWaitForSingleObject(silent.Get(), 0), CancelRequestedException);
    }
    const HANDLE handles[] = {silent.Get()};
    const RequestAtTheRegistration run;
    EXPECT_THROW(CancellableWaitForMultipleObjects(1, handles, 0), CancelRequestedException);
}

// Looks at a request at the moment when the event is signalled.
class WatchedSignal {
  public:
    explicit WatchedSignal(Request& request) {
        s_request = &request;
        s_signal = m_patch.Original<Signal>();
    }
    WatchedSignal(const WatchedSignal&) = delete;
    WatchedSignal& operator=(const WatchedSignal&) = delete;

    static inline bool flagWasSet = false;
    static inline bool lockWasFree = false;

  private:
    using Signal = BOOL WINAPI(HANDLE);

    static BOOL WINAPI Look(HANDLE event) {
        flagWasSet = s_request->requested;
        lockWasFree = !s_request->lock.owns_lock() && IsFree(s_request->mutex);
        return s_signal(event);
    }

    static inline Request* s_request = nullptr;
    static inline Signal* s_signal = nullptr;

    const ImportPatch m_patch{LibraryUnderTest(), "SetEvent", &Look};
};

TEST(WaitEvent, SetsTheFlagAndUnlocksBeforeItIsSignalled) {
    const auto event = WaitEvent::CreateInstance(CurrentRun());
    Request request;
    const WatchedSignal signal(request);

    event->Notify(request.lock, request.requested);

    EXPECT_TRUE(signal.flagWasSet);
    EXPECT_TRUE(signal.lockWasFree);
    EXPECT_EQ(WaitForSingleObject(event->GetHandle(), 0), WAIT_OBJECT_0);
}

// Where the second step fails, the first has been taken and the third has not.
TEST(WaitEvent, SetsTheFlagBeforeItUnlocks) {
    const auto event = WaitEvent::CreateInstance(CurrentRun());
    Request request;
    std::unique_lock<std::recursive_mutex> unlocked(request.mutex, std::defer_lock);

    EXPECT_THROW(event->Notify(unlocked, request.requested), std::system_error);

    EXPECT_TRUE(request.requested);
    EXPECT_EQ(WaitForSingleObject(event->GetHandle(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

// The events that the library has created and not closed.
class OpenEvents {
  public:
    OpenEvents() {
        s_create = m_create.Original<CreateAny>();
        s_closeHandle = m_close.Original<CloseAny>();
        CloseSpareEvents();
        s_events.clear();
    }
    OpenEvents(const OpenEvents&) = delete;
    OpenEvents& operator=(const OpenEvents&) = delete;

    std::size_t Count() const { return s_events.size(); }

  private:
    using CreateAny = HANDLE WINAPI(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR);
    using CloseAny = BOOL WINAPI(HANDLE);

    static HANDLE WINAPI Create(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL state, LPCWSTR name) {
        const HANDLE event = s_create(security, manualReset, state, name);
        s_events.insert(event);
        return event;
    }
    static BOOL WINAPI Close(HANDLE handle) {
        s_events.erase(handle);
        return s_closeHandle(handle);
    }

    static inline CreateAny* s_create = nullptr;
    static inline CloseAny* s_closeHandle = nullptr;
    static inline std::set<HANDLE> s_events;

    const ImportPatch m_create{LibraryUnderTest(), "CreateEventW", &Create};
    const ImportPatch m_close{LibraryUnderTest(), "CloseHandle", &Close};
};

// More waits at a time than events are kept for later ones: none is left, and no two waits ever have the same.
TEST(WaitEvent, IsNeverSharedAndClosedWhereNoRoomIsLeft) {
    const OpenEvents open;
    for (int round = 0; round < 2; ++round) {
        std::vector<std::unique_ptr<WaitEvent>> waits;
        std::set<HANDLE> used;
        for (int i = 0; i < 40; ++i) {
            waits.push_back(std::make_unique<WaitEvent>());
            used.insert(waits.back()->GetHandle());
        }
        EXPECT_EQ(used.size(), 40U);
        EXPECT_EQ(open.Count(), 40U);
        waits.clear();
        EXPECT_EQ(open.Count(), 16U);
    }
    CloseSpareEvents();
    EXPECT_EQ(open.Count(), 0U);
}

}  // namespace
