// The one stop of a process: for Ctrl+C, the stop of a service, the end of a window.
//
//     SetConsoleCtrlHandler([](DWORD) -> BOOL { return Orvane::StopAll(5s, L"Ctrl+C"), TRUE; }, TRUE);
//
// Threads: any, a console control handler's too. Several calls at a time do no harm: the first one's reason stays.
// Waiting: pumps no messages. A window's thread that jobs send messages to must not wait here: give a limit of 0.
// Cancellation: no cancellation point.
// Memory: everything in the runs that it has waited for is visible after it.
// Errors: std::bad_alloc, std::system_error; all have been asked by then.
// Lifetime: the library may be uninitialised, or on its way to it.
#pragma once

#include <chrono>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/jobs/runs.h"

namespace Orvane {

// Asks every job, group and tracker to leave, the newest first and all at once: only then it runs stop callbacks and destroys
// callables that will not run. It waits until all of them have left, for at most `limit`, and returns what is late; each of
// those has a line in the log.
//
// It does not ask tasks without a tracker. What a run that was asked starts is asked as it is born; what other threads start
// meanwhile is neither asked nor waited for: call it again. Inside a run it asks that run, too, but waits neither for it nor for
// the runs that own it.
//
// `why` is what GetCancelReason() and the log say, as in "asked by Ctrl+C".
ORVANE_CONCURRENCY_API std::vector<RunInfo> StopAll(std::chrono::nanoseconds limit, const wchar_t* why);

}  // namespace Orvane
