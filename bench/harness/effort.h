// How much a program measures.
//
//   --shortest  every subject once, as little as possible: shows that the program still works, its figures mean nothing
//   (nothing)   the usual tables, in seconds
//   --all       also the long tables, in minutes
#pragma once

#include <algorithm>
#include <cstddef>

namespace Zarvo::Bench {

enum class Effort { kShortest, kUsual, kAll };

// How many rounds a table is measured in. Each figure is the median of them.
constexpr std::size_t Rounds(Effort effort) {
    return effort == Effort::kShortest ? 1 : 5;
}

// `usual`, or next to nothing.
constexpr std::size_t Scaled(Effort effort, std::size_t usual) {
    return effort == Effort::kShortest ? std::min<std::size_t>(usual, 16) : usual;
}

}  // namespace Zarvo::Bench
