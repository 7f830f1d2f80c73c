// The steps of every cancellable wait: register a notifier, test for a request, block, test again.
//
// Not for callers.
//
// A request sets the flag and looks for a notifier under one lock. So a wait that registers first and tests second either
// sees the request or is woken by it. A wait on a condition tests and falls asleep in one hold of the mutex that Notify()
// takes, so the wake-up cannot come between the two.
//
// A new wait is one function, which throws when nothing is left to destroy:
//
//     void WaitForSomething() {
//         if (WaitForSomethingUnlessCancelled() == WaitResult::Cancelled) {
//             ThrowCancelRequested();
//         }
//     }
//     WaitResult WaitForSomethingUnlessCancelled() {
//         const WaitingRun run = CurrentRun();
//         const auto notifier = run.Register(std::make_shared<SomeNotifier>());
//         return run.WaitUnlessCancelled(WaitKind::Something, nullptr, [&] { return notifier->BlocksUntilInTime(); });
//     }
//
// Thrown through a frame that still has something to destroy, the exception would take twice as long.
//
// Threads: call them on the task's thread. On a thread that runs no task, nothing is registered or cancelled.
// Errors: std::system_error, std::bad_alloc.
#pragma once

#include <memory>
#include <utility>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/waiting_run.h"

namespace Orvane::Internal {

// The run that the calling thread is in. The one look at it that a wait takes: it costs as much as all the rest.
inline WaitingRun CurrentRun() {
    return WaitingRun(GetCancellationObject());
}

// Registers `notifier` with the run that the calling thread is in, if any, in place of any other, and returns it.
template <typename Notifier>
[[nodiscard]] std::shared_ptr<Notifier> RegisterWithCurrentRun(std::shared_ptr<Notifier> notifier) {
    return CurrentRun().Register(std::move(notifier));
}

}  // namespace Orvane::Internal
