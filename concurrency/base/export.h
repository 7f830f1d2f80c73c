// The one export macro of the library, and the check of what uses it.
//
// Not for callers.
//
// ORVANE_CONCURRENCY_EXPORTS is defined while the library itself is compiled, ORVANE_CONCURRENCY_STATIC by code that
// links the library's objects directly. Everybody else imports.
#pragma once

#include "concurrency/base/layout.h"

#if defined(ORVANE_CONCURRENCY_EXPORTS)
#define ORVANE_CONCURRENCY_API __declspec(dllexport)
#elif defined(ORVANE_CONCURRENCY_STATIC)
#define ORVANE_CONCURRENCY_API
#else
#define ORVANE_CONCURRENCY_API __declspec(dllimport)
#endif

namespace Orvane::Internal {

// Returns if `layout` is the library's kLayout. Otherwise it says so on standard error and ends the process, exit code 3.
ORVANE_CONCURRENCY_API bool CheckLayout(std::uint64_t layout) noexcept;

#if !defined(ORVANE_CONCURRENCY_EXPORTS) && !defined(ORVANE_CONCURRENCY_STATIC)
// Once for each module, when it is loaded.
inline const bool g_layoutIsTheLibrarys = CheckLayout(kLayout);
#endif

}  // namespace Orvane::Internal
