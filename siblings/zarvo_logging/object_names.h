// Where the framework's named kernel objects live.
#pragma once

#include <string>

#include "zarvo_logging/export.h"

namespace Zarvo::Logging {

// Returns the full name of the kernel object with the short name `name`: "Global\ZARVO_" and the name. Such an object
// is shared by all sessions of the machine, and is kept apart from other products' objects.
//
// The environment variable ZARVO_OBJECTS_NAMESPACE, read at each call, replaces "Global\ZARVO_". Tests use it to keep
// their objects to themselves. It may be "Global\" or "Local\" with or without a prefix behind it, or a prefix alone;
// the prefix has no backslash.
//
// Threads: may be called from any thread.
// Errors: std::invalid_argument for a null name (an object without a name needs none of this); std::runtime_error if
//     ZARVO_OBJECTS_NAMESPACE has another form; std::bad_alloc. An empty name is a name: it gives the prefix alone, one
//     object for all who ask for it. A name with a backslash in it gives a name that the system will refuse.
ZARVO_LOGGING_API std::wstring PrependZarvoObjectsNamespace(const wchar_t* name);

}  // namespace Zarvo::Logging
