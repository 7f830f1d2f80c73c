// What a job asks about itself.
//
// Threads: each call is about the run that the calling thread is in.
// Errors: std::bad_alloc, std::system_error.
#pragma once

#include <stop_token>

#include "concurrency/base/export.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/stop_in_module.h"
#include "concurrency/jobs/this_module.h"

namespace Orvane {

namespace Internal {

ORVANE_CONCURRENCY_API std::stop_token TokenOfThisRun(StopInModule stop, ModuleLedger& module);

}  // namespace Internal

// A token of the run that the calling thread is in, whatever makes the request: a handle, the group, a parent, a limit, a
// token, a tracker, the last uninitialisation, or the run itself. Outside a run no stop is possible.
//
// Callbacks on it run on the thread that asks, without a lock of the library. They must not throw, and must not wait for this
// job. During the last uninitialisation that thread holds the lifetime's lock: there they must not wait for a thread that
// initialises or uninitialises.
//
// The token is one for the calling module: the library keeps a DLL loaded until the run has ended. With GCC's library only that
// module may destroy callbacks on it while a request may be under way.
ORVANE_OF_THIS_MODULE inline std::stop_token StopTokenOfThisJob() {
    return Internal::TokenOfThisRun(&Internal::StopInThisModule, Internal::LedgerOfThisModule());
}

// Why the job that the calling thread runs was asked first; None if it was not, or outside a job.
ORVANE_CONCURRENCY_API CancelReason CancelReasonOfThisJob();

}  // namespace Orvane
