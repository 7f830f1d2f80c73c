// The bracket around every use of the library.
//
// Calls are counted: the first initialisation allocates the slot of the current task, the last uninitialisation
// destroys the scheduler, the thread pool and the slot, in this order. Pool and scheduler are created on first use.
// Any number of cycles may follow one another.
//
// The last uninitialisation blocks. It hands over what is due and runs what is queued; after 30 s it cancels what is
// left on the pool. Then it joins all threads without limit. An initialisation on another thread waits meanwhile.
//
// Memory: everything that the library's threads have done is visible after the last uninitialisation.
//
// Threads: any. The last uninitialisation must not run on one of the library's own threads: the process ends
//     (std::terminate). A task must not initialise or uninitialise while the last uninitialisation runs: it would wait
//     for the thread that waits for it.
// Cancellation: no cancellation points.
// Errors: std::system_error if the lifetime lock fails; nothing is changed then. A failure while pool or scheduler
//     are torn down ends the process.
// Lifetime: call the last uninitialisation before main() returns. Never call it in DllMain or in the destructor of a
//     DLL's static object: there the library's threads are dead or cannot end.
//
// On purpose: one uninitialisation too many is not repaired. The count goes to -1, nothing is torn down, and one extra
// initialisation is needed before the library counts as initialised again.
#pragma once

#include "concurrency/base/export.h"

namespace Orvane {

// One more initialisation.
ORVANE_CONCURRENCY_API void ConcurrencyInitialize();

// One less. The last one stops everything.
ORVANE_CONCURRENCY_API void ConcurrencyUninitialize();

// Initialises on construction, uninitialises on destruction.
class ORVANE_CONCURRENCY_API ConcurrencyLifetime {
  public:
    // ConcurrencyInitialize().
    ConcurrencyLifetime();

    // ConcurrencyUninitialize().
    ~ConcurrencyLifetime() noexcept;
    ConcurrencyLifetime(const ConcurrencyLifetime&) = delete;
    ConcurrencyLifetime& operator=(const ConcurrencyLifetime&) = delete;
};

namespace Internal {

// Whether there were more initialisations than uninitialisations. True until the last uninitialisation has ended. Takes no
// lock, so a thread that the last uninitialisation waits for may ask.
ORVANE_CONCURRENCY_API bool IsConcurrencyInitialized();

}  // namespace Internal
}  // namespace Orvane
