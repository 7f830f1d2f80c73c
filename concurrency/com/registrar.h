// Writes and removes what the module's registry script says.
//
// Threads: any; enters a COM apartment for the call if the thread is in none.
// Errors: as HRESULTs; std::bad_alloc, std::system_error if the module's path cannot be read.
#pragma once

#include "concurrency/com/registration_scope.h"

namespace Orvane::Internal {

enum class RegistryAction { kWrite, kRemove };

// By the platform's registrar where there is one, else by our own; both leave the same keys. The platform's knows the
// machine's classes only.
HRESULT ApplyRegistryScript(HINSTANCE module, RegistrationScope scope, RegistryAction action);

}  // namespace Orvane::Internal
