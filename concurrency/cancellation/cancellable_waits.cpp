#include "concurrency/cancellation/cancellable_waits.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>

#include "concurrency/base/thread_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/noted_waits.h"
#include "concurrency/cancellation/sleep_notification_adapter.h"
#include "concurrency/cancellation/wait_event.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane {

namespace {

using Internal::CurrentRun;
using Internal::SleepNotificationAdapter;
using Internal::WaitEvent;
using Internal::WaitingRun;
using Internal::WaitKind;
using Internal::WaitResult;

struct HandleOutcome {
    bool isCancelled;
    DWORD result;
    DWORD error;  // meaningful for WAIT_FAILED
};

constexpr HandleOutcome kCancelled{true, 0, ERROR_SUCCESS};

// Hands the outcome to the caller. Called last: whatever is destroyed before may change the thread's last error.
DWORD Return(const HandleOutcome& outcome) {
    if (outcome.isCancelled) {
        Internal::ThrowCancelRequested();
    }
    if (outcome.result == WAIT_FAILED) {
        SetLastError(outcome.error);
    }
    return outcome.result;
}

// The event stands last. Its signal without a request is returned like any other. A request does not hide another result:
// with it the caller may have become the owner of a mutex.
HandleOutcome WaitForAny(const WaitingRun& run, WaitKind kind, DWORD count, const HANDLE* handles, DWORD milliseconds,
                         WaitEvent& event) {
    const WaitingRun::Note note(run, kind, handles[0]);
    const DWORD result = WaitForMultipleObjects(count, handles, FALSE, milliseconds);
    if (result == WAIT_FAILED) {
        const DWORD error = GetLastError();
        event.WaitFailed();
        return {false, result, error};
    }
    if (result == WAIT_OBJECT_0 + count - 1) {
        event.SignalTaken();
        if (run.IsRequested()) {
            return kCancelled;
        }
    }
    return {false, result, ERROR_SUCCESS};
}

HandleOutcome WaitForOne(HANDLE handle, DWORD milliseconds, WaitKind kind) {
    const WaitingRun run = CurrentRun();
    const auto event = WaitEvent::CreateInstance(run);
    if (run.IsRequested()) {
        return kCancelled;
    }
    const HANDLE handles[] = {handle, event->GetHandle()};
    return WaitForAny(run, kind, 2, handles, milliseconds, *event);
}

HandleOutcome WaitForSeveral(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    const WaitingRun run = CurrentRun();
    const auto event = WaitEvent::CreateInstance(run);
    if (run.IsRequested()) {
        return kCancelled;
    }
    // On purpose: the size does not wrap for the largest count, while the count passed on does and is refused there.
    const auto all = std::make_unique_for_overwrite<HANDLE[]>(static_cast<std::size_t>(count) + 1);
    std::copy_n(handles, count, all.get());
    all[count] = event->GetHandle();
    return WaitForAny(run, WaitKind::Handles, count + 1, all.get(), milliseconds, *event);
}

// In the time that the thread lives in, which has no early wake-ups.
WaitResult SleepInTime(const WaitingRun& run, Internal::ThreadTime& time, DWORD milliseconds) {
    return run.WaitUnlessCancelled(WaitKind::Sleep, nullptr, [&] {
        const auto deadline = milliseconds == INFINITE ? (Internal::MonotonicClock::time_point::max)()
                                                       : time.Now() + std::chrono::milliseconds(milliseconds);
        time.Block([&run] { return run.IsRequested(); }, deadline);
        return true;
    });
}

WaitResult SleepUnlessCancelled(DWORD milliseconds, WaitKind kind) {
    const WaitingRun run = CurrentRun();
    if (Internal::ThreadTime* const time = Internal::ThreadTime::OfThisThread()) {
        return SleepInTime(run, *time, milliseconds);
    }
    return SleepNotificationAdapter::Sleep(run, milliseconds, kind);
}

}  // namespace

void Internal::SleepNoted(WaitKind kind, DWORD milliseconds) {
    if (SleepUnlessCancelled(milliseconds, kind) == WaitResult::Cancelled) {
        Internal::ThrowCancelRequested();
    }
}

DWORD Internal::WaitNoted(WaitKind kind, HANDLE handle, DWORD milliseconds) {
    return Return(WaitForOne(handle, milliseconds, kind));
}

void CancellableSleep(DWORD milliseconds) {
    if (SleepUnlessCancelled(milliseconds, WaitKind::Sleep) == WaitResult::Cancelled) {
        Internal::ThrowCancelRequested();
    }
}

DWORD CancellableWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return Return(WaitForOne(handle, milliseconds, WaitKind::Handle));
}

DWORD CancellableWaitForMultipleObjects(DWORD count, const HANDLE* handles, DWORD milliseconds) {
    return Return(WaitForSeveral(count, handles, milliseconds));
}

}  // namespace Orvane
