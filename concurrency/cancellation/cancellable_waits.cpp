#include "concurrency/cancellation/cancellable_waits.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/sleep_notification_adapter.h"
#include "concurrency/cancellation/wait_event.h"

namespace Orvane {

namespace {

using Internal::SleepNotificationAdapter;
using Internal::WaitEvent;

struct WaitOutcome {
    DWORD result;
    DWORD error;  // meaningful for WAIT_FAILED
};

// Hands the outcome to the caller. Called last: whatever is destroyed before may change the thread's last error.
DWORD Return(const WaitOutcome& outcome) noexcept {
    if (outcome.result == WAIT_FAILED) {
        SetLastError(outcome.error);
    }
    return outcome.result;
}

WaitOutcome WaitForAny(DWORD count, const HANDLE* handles, DWORD milliseconds) noexcept {
    const DWORD result = WaitForMultipleObjects(count, handles, FALSE, milliseconds);
    return {result, result == WAIT_FAILED ? GetLastError() : ERROR_SUCCESS};
}

// The event stands at `eventIndex`. Its signal without a request is returned like any other.
void ThrowIfCancelled(const WaitOutcome& outcome, DWORD eventIndex, WaitEvent& event) {
    if (outcome.result == WAIT_OBJECT_0 + eventIndex) {
        event.SetSignalled();
        CancellationPoint();
    }
}

WaitOutcome WaitForOne(HANDLE handle, DWORD milliseconds) {
    const auto event = WaitEvent::CreateInstance();
    CancellationPoint();
    const HANDLE handles[] = {handle, event->GetHandle()};
    const WaitOutcome outcome = WaitForAny(2, handles, milliseconds);
    ThrowIfCancelled(outcome, 1, *event);
    return outcome;
}

WaitOutcome WaitForSeveral(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    const auto event = WaitEvent::CreateInstance();
    CancellationPoint();
    // On purpose: the size does not wrap for the largest count, while the count passed on does and is refused there.
    const auto all = std::make_unique_for_overwrite<HANDLE[]>(static_cast<std::size_t>(count) + 1);
    std::copy_n(handles, count, all.get());
    all[count] = event->GetHandle();
    const WaitOutcome outcome = WaitForAny(count + 1, all.get(), milliseconds);
    ThrowIfCancelled(outcome, count, *event);
    return outcome;
}

}  // namespace

void CancellableSleep(DWORD milliseconds) {
    const auto notifier = SleepNotificationAdapter::CreateInstance();
    static_cast<SleepNotificationAdapter&>(*notifier).Sleep(milliseconds);
}

DWORD CancellableWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return Return(WaitForOne(handle, milliseconds));
}

DWORD CancellableWaitForMultipleObjects(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    return Return(WaitForSeveral(count, handles, milliseconds));
}

}  // namespace Orvane
