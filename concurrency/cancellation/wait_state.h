// What a thread waits in, as its run's note says it. Not for callers.
#pragma once

#include <cstdint>

namespace Orvane::Internal {

// What a thread waits in. `object` is what the second column says.
enum class WaitKind : std::uint32_t {
    None,
    Sleep,              // null
    Handle,             // the handle
    Handles,            // the first handle
    Condition,          // the condition
    FifoMutex,          // the mutex
    CheckedMutex,       // the mutex. No request wakes it
    InterprocessMutex,  // its handle
    Task,               // the future. No request wakes it
    Jobs,               // null: jobs/ knows for which jobs a thread waits
    DroppedJobs,        // the same, in a destructor. No request wakes it
    Place,              // null: a job that wants its place in its group again
    Growth,             // null: the pool is about to grow
};

struct WaitState {
    WaitKind kind = WaitKind::None;
    const void* object = nullptr;
    std::uint64_t since = 0;  // a tick of CoarseClock
};

}  // namespace Orvane::Internal
