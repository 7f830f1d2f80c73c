// Ends a test that has lost a wake-up: threads that sleep for ever cannot be joined.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "tests/support/eventually.h"

namespace Zarvo::Test {

// Waits until `isDone()` holds. If it does not within a minute, ends the process with a line on standard error.
template <typename Predicate>
void WaitOrEnd(const char* what, Predicate isDone) {
    if (!Eventually(isDone, std::chrono::minutes(1))) {
        std::fprintf(stderr, "%s: still waiting after a minute\n", what);
        std::fflush(stderr);
        std::abort();
    }
}

}  // namespace Zarvo::Test
