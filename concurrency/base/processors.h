// How many processors the process may use.
//
// Threads: any; set it before other threads ask.
#pragma once

#include <cstdint>

namespace Orvane::Internal {

// The active processors of all groups; read once.
std::uint32_t ProcessorCount() noexcept;

// From now on ProcessorCount() answers `count`; 0 brings the machine's own count back.
void SetProcessorCountForTest(std::uint32_t count) noexcept;

}  // namespace Orvane::Internal
