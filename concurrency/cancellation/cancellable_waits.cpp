#include "concurrency/cancellation/cancellable_waits.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/sleep_notification_adapter.h"
#include "concurrency/cancellation/wait_event.h"

namespace Orvane {

namespace {

using Internal::SleepNotificationAdapter;
using Internal::WaitEvent;

// Cancellation becomes an exception only in the functions that the caller calls. In each frame with something to destroy
// on its way, it would be stopped and set off again: that takes about as long as throwing it.

struct WaitOutcome {
    bool cancelled;
    DWORD result;
    DWORD error;  // meaningful for WAIT_FAILED
};

constexpr WaitOutcome kCancelled{true, 0, ERROR_SUCCESS};

// Hands the outcome to the caller. Called last: whatever is destroyed before may change the thread's last error.
DWORD Return(const WaitOutcome& outcome) {
    if (outcome.cancelled) {
        throw CancelRequestedException();
    }
    if (outcome.result == WAIT_FAILED) {
        SetLastError(outcome.error);
    }
    return outcome.result;
}

// The event stands last. Its signal without a request is returned like any other.
WaitOutcome WaitForAny(DWORD count, const HANDLE* handles, DWORD milliseconds, WaitEvent& event) {
    const DWORD result = WaitForMultipleObjects(count, handles, FALSE, milliseconds);
    const DWORD error = result == WAIT_FAILED ? GetLastError() : ERROR_SUCCESS;
    if (result == WAIT_OBJECT_0 + count - 1) {
        event.SignalTaken();
        if (IsCancellationRequested()) {
            return kCancelled;
        }
    }
    return {false, result, error};
}

WaitOutcome WaitForOne(HANDLE handle, DWORD milliseconds) {
    const auto event = WaitEvent::CreateInstance();
    if (IsCancellationRequested()) {
        return kCancelled;
    }
    const HANDLE handles[] = {handle, event->GetHandle()};
    return WaitForAny(2, handles, milliseconds, *event);
}

WaitOutcome WaitForSeveral(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    const auto event = WaitEvent::CreateInstance();
    if (IsCancellationRequested()) {
        return kCancelled;
    }
    // On purpose: the size does not wrap for the largest count, while the count passed on does and is refused there.
    const auto all = std::make_unique_for_overwrite<HANDLE[]>(static_cast<std::size_t>(count) + 1);
    std::copy_n(handles, count, all.get());
    all[count] = event->GetHandle();
    return WaitForAny(count + 1, all.get(), milliseconds, *event);
}

// Returns false if it was cancelled.
bool SleepUnlessCancelled(DWORD milliseconds) {
    const auto notifier = SleepNotificationAdapter::CreateInstance();
    return static_cast<SleepNotificationAdapter&>(*notifier).SleepUnlessCancelled(milliseconds);
}

}  // namespace

void CancellableSleep(DWORD milliseconds) {
    if (!SleepUnlessCancelled(milliseconds)) {
        throw CancelRequestedException();
    }
}

DWORD CancellableWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return Return(WaitForOne(handle, milliseconds));
}

DWORD CancellableWaitForMultipleObjects(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    return Return(WaitForSeveral(count, handles, milliseconds));
}

}  // namespace Orvane
