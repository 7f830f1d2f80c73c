// The exceptions for use of the library at the wrong time.
#pragma once

namespace Orvane::Internal {

// Errors: always Unexpected.
[[noreturn]] void ThrowNotInitialized();

// During the last uninitialisation. Errors: always Unexpected.
[[noreturn]] void ThrowUninitializing();

}  // namespace Orvane::Internal
