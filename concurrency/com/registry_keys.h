// The registry script's few keys, written and removed without the platform's registrar.
//
// Threads: any. Errors: as HRESULTs; std::bad_alloc, std::system_error if the module's path cannot be read.
#pragma once

#include "concurrency/com/registration_scope.h"

namespace Orvane::Internal {

HRESULT WriteRegistryKeys(HINSTANCE module, RegistrationScope scope);

// S_OK if there are none.
HRESULT RemoveRegistryKeys(RegistrationScope scope);

// Removes the type library's own key, in which its versions are, if no version is left.
void RemoveLibraryKeyIfEmpty(RegistrationScope scope);

}  // namespace Orvane::Internal
