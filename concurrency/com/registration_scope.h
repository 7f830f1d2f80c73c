// For whom the module registers itself.
//
// Threads: any. Errors: none.
#pragma once

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

enum class RegistrationScope { kMachine, kUser };

// The user alone if the environment variable ZARVO_REGISTER_PER_USER is "1", else the machine.
RegistrationScope RequestedRegistrationScope() noexcept;

// Where the scope's classes are registered, as a key and the path to it.
struct ClassesRoot {
    HKEY key;
    const wchar_t* path;
};

ClassesRoot ClassesRootOf(RegistrationScope scope) noexcept;

}  // namespace Orvane::Internal
