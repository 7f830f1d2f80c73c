// layout_test_child [OTHER]: a program that assumes the library's layouts, or another one.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "concurrency/base/export.h"

int main(int count, char** arguments) {
    const std::uint64_t difference = count > 1 ? std::strtoull(arguments[1], nullptr, 16) : 0;
    Orvane::Internal::CheckLayout(Orvane::Internal::kLayout ^ difference);
    std::puts("goes on");
}
