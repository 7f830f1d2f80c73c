// The memory that belongs to this process alone.
//
// Errors: std::system_error if the system does not tell.
#pragma once

#include <cstddef>

namespace Zarvo::Bench {

std::size_t PrivateBytes();

}  // namespace Zarvo::Bench
