// How many blocks of memory the program's own modules hold: the program, the library and the other DLLs beside it, the
// C++ runtime among them, so that everything made with new is counted.
//
// Not read from the heap itself: a walk over a heap may show small blocks only as the groups that they are cut from.
// Instead, the C runtime's functions are replaced where these modules import them, at the first call of either function
// below and for good. Both numbers start from there: only differences mean anything, and a difference may be negative.
//
// Threads: any.
#pragma once

#include <cstdint>

namespace Zarvo::Test {

std::int64_t LiveBlocks();

// Without over-aligned blocks, whose size the runtime does not tell.
std::int64_t LiveBytes();

}  // namespace Zarvo::Test
