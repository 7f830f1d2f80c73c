// What the tests of figures share.
#pragma once

#include <string>

#include "concurrency/figures/figures.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

// Those of a name; without a name if there are none.
inline Orvane::NameFigures FiguresOf(const std::wstring& name) {
    for (const Orvane::NameFigures& named : Orvane::GetFigures().names) {
        if (named.name == name) {
            return named;
        }
    }
    return {};
}

// Keeps the processor busy for so long.
inline void Compute(std::chrono::nanoseconds time) {
    const Stopwatch stopwatch;
    while (stopwatch.Elapsed() < time) {
    }
}

}  // namespace Zarvo::Test
