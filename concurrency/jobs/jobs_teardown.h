// The part of this room in the last uninitialisation and in the next initialisation.
//
// Threads: under the lifetime's mutex.
#pragma once

namespace Orvane::Internal {

// Before the scheduler and the pool go: from now on no job is started, and all live ones are asked.
void BeginJobsTeardown() noexcept;

// After that.
void EndJobsTeardown() noexcept;

// The library is initialised: jobs may be started.
void AllowJobs() noexcept;

}  // namespace Orvane::Internal
