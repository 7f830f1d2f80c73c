// Items for ForEach() and Map(), and how one fails.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <numeric>
#include <vector>

namespace Zarvo::Test {

inline std::vector<int> Numbers(int count) {
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

struct FailsAt {
    int number;
};

}  // namespace Zarvo::Test
