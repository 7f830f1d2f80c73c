// What the steps of a schedule use of what more than one thread uses. A step is what a thread does from one point to the next.
#pragma once

#include <cstdint>

#include "tests/schedules/controller/footprint.h"

namespace Schedules {

// Notes that the calling thread uses what is there, in the step that it is in.
void NoteUse(const void* object, bool writes) noexcept;

// The same of what it looks at without an effect, before it waits. It is no part of the trace: a thread that comes a moment later need not wait.
void NoteAttempt(const void* object) noexcept;

// The same of what a key of memory.h names.
void NoteUseOf(std::uint64_t key, bool writes) noexcept;

void BeginUses() noexcept;

// What was used since the last call.
Footprint TakeStep() noexcept;

// Whether something of the schedule turned out to be shared, so that earlier uses of it are not noted.
bool HasMissedUses() noexcept;

// Says which thread has used what after whose change: the same number for all schedules that differ only in the order of steps
// without a conflict. Counted after KeepTrace() only.
void KeepTrace() noexcept;
std::uint64_t TraceOfUses() noexcept;

}  // namespace Schedules
