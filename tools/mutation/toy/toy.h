#pragma once

template <typename Number>
Number Larger(Number a, Number b) {
    return a < b ? b : a;
}

constexpr int Twice(int value) {
    return value > 0 ? 2 * value : 0;
}
