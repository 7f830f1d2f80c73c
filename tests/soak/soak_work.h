// The parts of the soak's load. Each is called on a thread of its own in each cycle, and works until the cycle is over.
#pragma once

#include <atomic>
#include <cstdint>

#include "tests/soak/soak_tally.h"
#include "tests/soak/soak_watch.h"
#include "tests/support/stress_run.h"

namespace Zarvo::Test {

struct SoakScene {
    SoakTally& tally;
    SoakWatch& watch;
    const std::atomic<bool>& isOver;
    Random random;
    std::uint64_t cycle;
};

void SoakJobs(SoakScene scene);
void SoakGroups(SoakScene scene);
void SoakSchedules(SoakScene scene);
void SoakLocks(SoakScene scene);
void SoakCancels(SoakScene scene);
void SoakPlugIns(SoakScene scene);

// One process that is killed while it holds a named mutex.
void SoakProcesses(SoakScene scene);

// One process in which workers are killed.
void SoakKills(SoakScene scene);

// The other sides of the last two: what such a process does. Return its exit code.
int HoldMutexForEver(const wchar_t* name);
int KillWorkers(int cycles);

// Cancels that never come are the proof that the watch sees.
inline std::atomic<bool> g_losesAWakeUp = false;

}  // namespace Zarvo::Test
