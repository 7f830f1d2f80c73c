// What a job asks about itself.
//
// Threads: each call is about the run that the calling thread is in.
// Errors: std::bad_alloc, std::system_error.
#pragma once

#include <stop_token>

#include "concurrency/base/export.h"
#include "concurrency/jobs/cancel_reason.h"

namespace Orvane {

// A token of the run that the calling thread is in, whatever makes the request: a handle, the group, a parent, a limit, a
// token, a tracker, the last uninitialisation, or the run itself. Outside a run no stop is possible.
//
// Callbacks on it run on the thread that asks, without a lock of the library. They must not throw, and must not wait for this
// job. During the last uninitialisation that thread holds the lifetime's lock: there they must not wait for a thread that
// initialises or uninitialises.
ORVANE_CONCURRENCY_API std::stop_token StopTokenOfThisJob();

// Why the job that the calling thread runs was asked first; None if it was not, or outside a job.
ORVANE_CONCURRENCY_API CancelReason CancelReasonOfThisJob();

}  // namespace Orvane
