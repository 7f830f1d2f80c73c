// Whether the library is initialised, for rooms below lifetime/ that ask. Only lifetime/ writes it.
#pragma once

#include <atomic>
#include <cstdint>

namespace Orvane::Internal {

// Initialisations less uninitialisations, but it reaches 0 only when the last uninitialisation has torn everything down. The
// scheduler's thread reads it while the thread that holds the lifetime's mutex waits for the scheduler's thread to end.
inline constinit std::atomic<std::int32_t> g_publishedInitializationCount = 0;

}  // namespace Orvane::Internal
