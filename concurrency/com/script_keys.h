// The keys of the registry script, written and removed.
//
// Every key is tried, whatever failed before it; the result is the first failure.
//
// Threads: any. Errors: as HRESULTs; std::bad_alloc, std::system_error if the module's path cannot be read.
#pragma once

#include "concurrency/com/registration_scope.h"

namespace Orvane::Internal {

HRESULT WriteScriptKeys(HINSTANCE module, RegistrationScope scope);

// Leaves a key that has keys of another program in it. Succeeds if there is none.
HRESULT RemoveScriptKeys(RegistrationScope scope);

}  // namespace Orvane::Internal
