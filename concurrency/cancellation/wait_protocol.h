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
//         const auto notifier = RegisterWithCurrentRun(std::make_shared<SomeNotifier>());
//         return WaitUnlessCancelled([&] { return notifier->BlocksUntilInTime(); });
//     }
//
// Thrown through a frame that still has something to destroy, the exception would take twice as long.
//
// Threads: call them on the task's thread. On a thread that runs no task, nothing is registered or cancelled.
// Errors: std::system_error, std::bad_alloc.
#pragma once

#include <memory>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"

namespace Orvane::Internal {

enum class WaitResult { Done, TimedOut, Cancelled };

// Registers `notifier` with the run that the calling thread is in, if any, in place of any other, and returns it. The run
// holds it weakly: it stays registered for as long as the caller keeps what is returned.
template <typename Notifier>
[[nodiscard]] std::shared_ptr<Notifier> RegisterWithCurrentRun(std::shared_ptr<Notifier> notifier) {
    if (const auto run = GetCancellationObject()) {
        run->RegisterNotifier(notifier);
    }
    return notifier;
}

// Calls `block` once, between two tests for a request. `block` returns whether it came back in time.
template <typename Block>
[[nodiscard]] WaitResult WaitUnlessCancelled(Block block) {
    if (IsCancellationRequested()) {
        return WaitResult::Cancelled;
    }
    const bool isInTime = block();
    if (IsCancellationRequested()) {
        return WaitResult::Cancelled;
    }
    return isInTime ? WaitResult::Done : WaitResult::TimedOut;
}

}  // namespace Orvane::Internal
