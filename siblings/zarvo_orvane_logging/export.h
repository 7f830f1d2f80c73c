// The one export macro of the logging library.
//
// ZARVO_ORVANE_LOGGING_EXPORTS is defined while the library itself is compiled, ZARVO_ORVANE_LOGGING_STATIC by code
// that compiles the library's sources into itself. Everybody else imports.
//
// Not for callers.
#pragma once

#if defined(ZARVO_ORVANE_LOGGING_EXPORTS)
#define ZARVO_ORVANE_LOGGING_API __declspec(dllexport)
#elif defined(ZARVO_ORVANE_LOGGING_STATIC)
#define ZARVO_ORVANE_LOGGING_API
#else
#define ZARVO_ORVANE_LOGGING_API __declspec(dllimport)
#endif
