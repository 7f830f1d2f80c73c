// What becomes of a failure that no caller will read: of a scheduled run, of work that was posted, and of jobs that were dropped
// or detached.
//
// Each gets one log line, is counted, and is handed to the process's handler. It never ends the process.
//
// Threads: any. The handler runs on the thread that ends the job, or that drops its handle. No lock of the library is held.
// Errors: none. What the handler throws is ignored.
// Cancellation: no cancellation points.
// Memory: everything in the failed run is visible to the handler.
// Lifetime: the handler and its code must stay for as long as it is set. It may read the failure only during its call.
#pragma once

#include <cstdint>
#include <exception>

#include "concurrency/base/export.h"

namespace Orvane {

// What the handler gets.
struct UnreadFailure {
    const wchar_t* name;  // of the job, in full; valid during the call
    std::exception_ptr error;  // never null
};

// Called once for each failure that is not read.
using FailureHandler = void (*)(const UnreadFailure& failure);

// Returns the handler before; null, as at the start, for none.
ORVANE_CONCURRENCY_API FailureHandler SetFailureHandler(FailureHandler handler) noexcept;

// How many there have been since the start of the process.
ORVANE_CONCURRENCY_API std::uint64_t UnreadFailureCount() noexcept;

namespace Internal {

// Counts and logs the failure, and calls the handler.
ORVANE_CONCURRENCY_API void ReportUnreadFailure(const wchar_t* name, const std::exception_ptr& error) noexcept;

}  // namespace Internal
}  // namespace Orvane
