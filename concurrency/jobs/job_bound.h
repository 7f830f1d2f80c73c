// How many jobs a group, or ForEach() and Map(), run at a time.
#pragma once

#include <cstddef>

#include "concurrency/base/export.h"

namespace Orvane {

// As a group's bound: all jobs may run at a time.
inline constexpr std::size_t Unbounded = static_cast<std::size_t>(-1);

// Twice the processors, at least 8.
ORVANE_CONCURRENCY_API std::size_t DefaultBound() noexcept;

}  // namespace Orvane
