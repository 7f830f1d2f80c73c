// Where the module's file is.
#pragma once

#include <string>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

// However long the path is. Errors: std::system_error with the platform's error, std::bad_alloc.
std::wstring ModulePath(HINSTANCE module);

}  // namespace Orvane::Internal
