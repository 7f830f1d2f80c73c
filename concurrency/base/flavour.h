// Refuses a compiler other than the one that an installed package was built with: standard types cross the interface, and
// their layouts and their heap are the runtime's. A package has built_for.h beside this; a build from the sources has not.
//
// Not for callers.
#pragma once

#include <mutex>  // in which a standard library says which one it is, and its thread model

#ifdef __GLIBCXX__
#define ORVANE_FLAVOUR_GLIBCXX 1
#else
#define ORVANE_FLAVOUR_GLIBCXX 0
#endif

#ifdef GCC_GTHR_WIN32_H
#define ORVANE_FLAVOUR_WIN32_THREADS 1
#else
#define ORVANE_FLAVOUR_WIN32_THREADS 0
#endif

#if defined(_UCRT) || defined(_MSC_VER)
#define ORVANE_FLAVOUR_UCRT 1
#else
#define ORVANE_FLAVOUR_UCRT 0
#endif

// Containers with other layouts than usual.
#if defined(_GLIBCXX_DEBUG) || (defined(_MSC_VER) && defined(_DEBUG))
#define ORVANE_FLAVOUR_DEBUG 1
#else
#define ORVANE_FLAVOUR_DEBUG 0
#endif

#if __has_include("concurrency/base/built_for.h")
#include "concurrency/base/built_for.h"

#if ORVANE_FLAVOUR_GLIBCXX != ORVANE_BUILT_FOR_GLIBCXX
#if ORVANE_BUILT_FOR_GLIBCXX
#error "This ZarvoConcurrency was built with GCC's standard library and serves no other. Build it with your compiler."
#else
#error "This ZarvoConcurrency was built with another standard library than GCC's. Take the package for your compiler."
#endif
#elif ORVANE_FLAVOUR_WIN32_THREADS != ORVANE_BUILT_FOR_WIN32_THREADS
#if ORVANE_BUILT_FOR_WIN32_THREADS
#error \
    "This ZarvoConcurrency was built for GCC's win32 thread model (g++-win32), not for posix. Take the package for yours."
#else
#error \
    "This ZarvoConcurrency was built for GCC's posix thread model, not for win32. Take the package for your compiler."
#endif
#elif ORVANE_FLAVOUR_UCRT != ORVANE_BUILT_FOR_UCRT
#if ORVANE_BUILT_FOR_UCRT
#error "This ZarvoConcurrency was built for the UCRT, not for msvcrt. Take the package for your compiler."
#else
#error "This ZarvoConcurrency was built for msvcrt, not for the UCRT. Take the package for your compiler."
#endif
#elif ORVANE_FLAVOUR_DEBUG != ORVANE_BUILT_FOR_DEBUG
#if ORVANE_BUILT_FOR_DEBUG
#error "This ZarvoConcurrency was built with the debug runtime, your program is not. Take the release package."
#else
#error "This ZarvoConcurrency was built with the release runtime, your program is not (_DEBUG, _GLIBCXX_DEBUG)."
#endif
#endif

#endif
