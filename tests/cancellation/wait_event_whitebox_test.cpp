// When the handle waits' notifier is registered, and in which order it passes a request on.
#include "concurrency/cancellation/wait_event.h"

#include <gtest/gtest.h>

#include <mutex>
#include <system_error>

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

}  // namespace
