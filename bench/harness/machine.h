// What the figures were measured on, and what of it a run leaves behind.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Zarvo::Bench {

// Name and value: processor, system, compiler, build.
std::vector<std::pair<std::string, std::string>> DescribeMachine();

// What the machine is busy with just now, in a word; empty if it does not tell.
std::string MachineLoad();

// What a reader must know about this system before he compares ratios; empty if there is nothing.
std::string MachineCaveat();

using ThreadIds = std::set<unsigned long>;

// The threads that this process has now.
ThreadIds ThreadsOfThisProcess();

// How many threads this process has now that are not in `before`.
std::size_t ThreadsSince(const ThreadIds& before);

}  // namespace Zarvo::Bench
