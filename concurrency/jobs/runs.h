// What runs now: every job, and every task, that a thread is in the middle of.
//
// Threads: any, inside a run too.
// Cancellation: none.
// Errors: std::bad_alloc, std::system_error. Nothing is changed then.
// Memory: each entry is as it was at one moment of the call; two entries need not be of the same moment.
// Cost: looks at every job that has not ended, also at those that wait. It holds up none of them for longer than it takes to
//     look at a sixteenth of them.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"
#include "concurrency/jobs/cancel_reason.h"

namespace Orvane {

// One run, as it was at one moment.
//
// Contract: a value.
struct RunInfo {
    // Of the job or task; a task keeps the first 29 characters.
    std::wstring name;

    // The name behind those of the runs and groups that it belongs to, as in "Import > Fetch 17".
    std::wstring path;

    // The Win32 id of the thread that is in it.
    DWORD thread = 0;

    // For how long it has run. All times are counted in steps of some 16 ms.
    std::chrono::milliseconds runs{};

    // Why it was asked to leave, and how long ago. Cause None: it was not.
    CancelReason reason;
    std::chrono::milliseconds asked{};

    // The wait of the library that it is in, as in "CancellableWaitForSingleObject(0x1c4)", and for how long. Empty if it is in
    // none: it computes, or waits elsewhere.
    std::wstring wait;
    std::chrono::milliseconds waits{};
};

// Those that run longest first.
ORVANE_CONCURRENCY_API std::vector<RunInfo> ListRuns();

// As in "Import > Fetch 17: asked 5.0 s ago by Ctrl+C, in CancellableWaitForSingleObject(0x1c4)".
ORVANE_CONCURRENCY_API std::wstring ToText(const RunInfo& run);

}  // namespace Orvane
