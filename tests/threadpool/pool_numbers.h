// How many workers the global pool has, and when it grows.
#pragma once

namespace Zarvo::Test {

inline constexpr int kFirstWorkers = 8;
inline constexpr int kBatch = 8;         // of workers, with which it grows
inline constexpr int kFirstFull = 6;     // with so many busy, one more task makes the pool grow

}  // namespace Zarvo::Test
