// The memory of a schedule: operators new and delete. Nothing is given out twice in one schedule, so an access to freed memory is
// seen as such.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Schedules {

void BeginMemory();
void EndMemory();

// What names an object in every schedule: who allocated it, as which of its allocations, and the place in there. Of other
// memory, where it is; on a stack, how deep.
std::uint64_t KeyOf(const void* object) noexcept;

// What names the allocated memory that such a key is in; 0 if it is in none.
std::uint64_t BlockKeyOf(std::uint64_t key) noexcept;

// Fails the schedule if the memory is freed. `what` says what is done there.
void CheckAccess(const void* address, const char* what);

// The stack of the calling thread, for KeyOf().
void NoteStack(int thread, const void* top) noexcept;

}  // namespace Schedules
