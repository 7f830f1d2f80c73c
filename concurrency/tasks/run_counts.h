// How many runs have ended how, and how long they waited, ran and took to leave: by name, since the start of the process.
//
// The digits in a name count as one '#': "Fetch 17" and "Fetch 18" are counted as "Fetch #". There is room for a number of names;
// what comes later is counted as "(others)". So the memory is bounded, whatever names a process makes up.
//
// Threads: any. A run is counted in a part of its own thread's, under that part's mutex, a leaf.
// Errors: none when it counts; it needs no memory.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "concurrency/base/log_histogram.h"
#include "concurrency/cancellation/run.h"

namespace Orvane::Internal {

// What is known of a run before it begins.
struct RunTitle {
    static constexpr std::size_t kCapacity = 30;  // characters, the terminator included

    std::array<wchar_t, kCapacity> name{};  // constant after construction

    // A tick of TickCounter, of the last time that it was queued; 0 if it was not, or if that run was counted.
    std::atomic<std::uint64_t> queuedAt = 0;
};

enum class RunEnd : std::uint8_t { Done, Failed, Cancelled };

// Of one name. Times in ticks of TickCounter.
struct RunCounts {
    std::array<std::uint64_t, 3> ends{};  // by RunEnd
    LogHistogram waited;  // from the call that queued it until it began
    LogHistogram ran;
    LogHistogram left;  // of those that were asked while they ran: from then to their ends

    void Add(const RunCounts& other) noexcept;
    std::uint64_t Ended() const noexcept { return ends[0] + ends[1] + ends[2]; }
};

// Counts a run that ends, on any thread. A part of a run is not counted, nor is one without a title.
void CountRun(RunTitle* title, const Run& run, RunEnd end) noexcept;

// Counts one that was cancelled before it began.
void CountUnbegun(const wchar_t* name) noexcept;

// All that has been counted, by name. Holds up no run for longer than it takes to copy the counts of one name.
//
// Errors: std::bad_alloc, std::system_error.
std::map<std::wstring, RunCounts> CopyRunCounts();

}  // namespace Orvane::Internal
