// Ends a test that has lost a wake-up: threads that sleep for ever cannot be joined.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "tests/support/eventually.h"

namespace Zarvo::Test {

// Waits until `isDone()` holds. If it does not, and `progress()` stays the same for a minute, ends the process with a
// line on standard error.
template <typename Predicate, typename Progress>
void WaitOrEnd(const char* what, Predicate isDone, Progress progress) {
    while (!isDone()) {
        const auto before = progress();
        if (!Eventually([&] { return isDone() || progress() != before; }, std::chrono::minutes(1))) {
            std::fprintf(stderr, "%s: nothing has happened for a minute\n", what);
            std::fflush(stderr);
            std::abort();
        }
        PauseBriefly();
    }
}

}  // namespace Zarvo::Test
