// The one export macro of the library.
//
// Not for callers.
//
// ORVANE_CONCURRENCY_EXPORTS is defined while the library itself is compiled, ORVANE_CONCURRENCY_STATIC by code that
// links the library's objects directly. Everybody else imports.
#pragma once

#if defined(ORVANE_CONCURRENCY_EXPORTS)
#define ORVANE_CONCURRENCY_API __declspec(dllexport)
#elif defined(ORVANE_CONCURRENCY_STATIC)
#define ORVANE_CONCURRENCY_API
#else
#define ORVANE_CONCURRENCY_API __declspec(dllimport)
#endif
