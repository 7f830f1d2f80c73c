// For programs that stand still in a known state: they go on when a run has come to its wait.
//
// Threads: any. Errors: none: what does not happen in time ends the process with code 1.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/runs.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

inline constexpr DWORD kWithoutEnd = 0xFFFFFFFF;

// Of the run with that name; 0 if it is not in a wait that begins so.
inline DWORD ThreadThatWaits(const std::wstring& name, const std::wstring& wait) {
    for (const Orvane::RunInfo& run : Orvane::ListRuns()) {
        if (run.name == name && run.wait.starts_with(wait)) {
            return run.thread;
        }
    }
    return 0;
}

// What begins after it is younger, by a tick of the library's clock of runs.
inline void AwaitNextTick() {
    const auto now = ::GetTickCount64();
    while (::GetTickCount64() == now) {
        PauseBriefly();
    }
}

// Returns when the run is in the wait.
inline DWORD AwaitWait(const std::wstring& name, const std::wstring& wait) {
    DWORD thread = 0;
    if (!Eventually([&] { return (thread = ThreadThatWaits(name, wait)) != 0; })) {
        std::fprintf(stderr, "a run does not come to its wait\n");
        std::_Exit(1);
    }
    AwaitNextTick();
    return thread;
}

}  // namespace Zarvo::Test
