// Ends the program at its start if the library that it found assumes other layouts than the headers it was compiled with.
// A DLL of another flavour or version has the same name and exports the same names.
//
// Not for callers: export.h has each module that uses the library checked once, when it is loaded.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "concurrency/base/flavour.h"

namespace Orvane::Internal {

// To be raised with every change of a public header's fields, virtual functions or inline bodies.
inline constexpr std::uint64_t kLayoutVersion = 1;

// Version, flavour, and the sizes that differ between standard libraries, eight bits each.
inline constexpr std::uint64_t kLayout =
    kLayoutVersion << 48 |
    std::uint64_t{ORVANE_FLAVOUR_GLIBCXX + 2 * ORVANE_FLAVOUR_WIN32_THREADS + 4 * ORVANE_FLAVOUR_UCRT +
                  8 * ORVANE_FLAVOUR_DEBUG}
        << 40 |
    std::uint64_t{sizeof(std::recursive_mutex)} << 32 | std::uint64_t{sizeof(std::condition_variable_any)} << 24 |
    std::uint64_t{sizeof(std::wstring)} << 16 | std::uint64_t{sizeof(std::function<void()>)} << 8 |
    std::uint64_t{sizeof(std::shared_ptr<void>)};

}  // namespace Orvane::Internal
