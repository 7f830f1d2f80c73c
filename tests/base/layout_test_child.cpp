// layout_test_child [OTHER]: a program that assumes the library's layouts, or others: of another version, or as the number says.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "concurrency/base/export.h"

int main(int count, char** arguments) {
    const std::string other = count > 1 ? arguments[1] : "0";
    const std::uint64_t difference =
        other == "layout" ? std::uint64_t{1} << 48 : std::strtoull(other.c_str(), nullptr, 16);
    Orvane::Internal::CheckLayout(Orvane::Internal::kLayout ^ difference);
    std::puts("goes on");
}
