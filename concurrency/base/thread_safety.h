// Says to clang's -Wthread-safety which lock guards what. Other compilers see nothing.
//
// Not for callers.
#pragma once

#if defined(__clang__)
#define ORVANE_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ORVANE_THREAD_SAFETY(attribute)
#endif

#define ORVANE_CAPABILITY ORVANE_THREAD_SAFETY(capability("mutex"))
#define ORVANE_SCOPED_CAPABILITY ORVANE_THREAD_SAFETY(scoped_lockable)
#define ORVANE_GUARDED_BY(mutex) ORVANE_THREAD_SAFETY(guarded_by(mutex))
#define ORVANE_REQUIRES(...) ORVANE_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define ORVANE_ACQUIRE(...) ORVANE_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define ORVANE_RELEASE(...) ORVANE_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define ORVANE_NO_THREAD_SAFETY_ANALYSIS ORVANE_THREAD_SAFETY(no_thread_safety_analysis)
