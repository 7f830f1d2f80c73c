// Registers the type library that the module carries as a resource.
//
// Threads: any. Errors: as HRESULTs; std::bad_alloc, std::system_error if the module's path cannot be read.
#pragma once

#include "concurrency/com/registration_scope.h"

namespace Orvane::Internal {

HRESULT RegisterTypeLibrary(HINSTANCE module, RegistrationScope scope);
HRESULT UnregisterTypeLibrary(RegistrationScope scope);

}  // namespace Orvane::Internal
