// What happens before what, in one schedule: a clock for each thread, carried along by mutexes, atomics, and begins and ends of threads.
// So memory that is freed while nothing orders that behind its use is found in every schedule in which both happen, however far
// apart.
//
// On purpose every operation on an object acquires and releases: an order that the library's memory orders do not give may be taken
// for granted here, never the other way round.
#pragma once

#include <cstdint>

namespace Schedules {

inline constexpr int kOrderedThreads = 16;

void BeginOrder() noexcept;

// By the calling thread, on an object that threads meet at.
void Acquire(std::uint64_t key) noexcept;
void Release(std::uint64_t key) noexcept;

void BeginOrderOf(int thread, int parent) noexcept;
void JoinOrderOf(int thread) noexcept;

// The calling thread's own clock; and how much of another's it has seen.
std::uint32_t OwnClock() noexcept;
std::uint32_t SeenOf(int thread) noexcept;

}  // namespace Schedules
