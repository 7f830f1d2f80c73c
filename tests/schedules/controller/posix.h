// The functions of POSIX threads and clocks that the library, the stand-in and the standard library reach, on the controller. They
// stand in the program, so they come before the system's own.
#pragma once

#include <cstdint>

#include <dlfcn.h>
#include <time.h>

#define WHERE __builtin_return_address(0)

namespace Schedules {

// The system's own.
template <typename Function>
Function* System(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// In nanoseconds of Now(), of a time of that clock.
std::int64_t Deadline(clockid_t clock, const timespec& time) noexcept;

// What is kept from one schedule to the next.
void ForgetThreads();

}  // namespace Schedules
