// A timed wait on a condition with the resolution of the interface's ticks, where the platform gives it.
//
// The standard library's own timed waits are rounded up to whole milliseconds by the platform call they use.
#pragma once

#include <condition_variable>
#include <mutex>

#include "concurrency/base/time.h"

namespace Orvane::Internal {

// Waits until `condition` is notified, woken for no reason, or `timeout` has passed: at most a day, see NextSlice(). May
// return some 50 us too soon: whoever waits for a moment asks the clock and waits again.
void PreciseWaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, const Duration& timeout);

}  // namespace Orvane::Internal
