// The one export macro of the utilities library.
//
// ZARVO_ORVANE_UTILS_EXPORTS is defined while the library itself is compiled, ZARVO_ORVANE_UTILS_STATIC by code that
// compiles the library's sources into itself. Everybody else imports.
//
// Not for callers.
#pragma once

#if defined(ZARVO_ORVANE_UTILS_EXPORTS)
#define ZARVO_ORVANE_UTILS_API __declspec(dllexport)
#elif defined(ZARVO_ORVANE_UTILS_STATIC)
#define ZARVO_ORVANE_UTILS_API
#else
#define ZARVO_ORVANE_UTILS_API __declspec(dllimport)
#endif
