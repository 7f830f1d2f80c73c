// The bracket around every use of the library.
//
// Calls are counted: the first initialisation allocates the slot of the current task, the last uninitialisation
// destroys the scheduler, the thread pool and the slot, in this order. Pool and scheduler are created on first use.
// Any number of cycles may follow one another.
//
// The last uninitialisation blocks: it hands over what is due, runs what is queued, cancels what is left on the pool after
// 30 s, and joins all threads without limit. An initialisation on another thread waits meanwhile.
//
// Threads: any. The last uninitialisation must not run on one of the library's own threads: the process ends
//     (std::terminate). A task must not initialise or uninitialise while the last uninitialisation runs: it would wait
//     for the thread that waits for it.
// Cancellation: no cancellation points.
// Errors: std::system_error if the lifetime lock fails; nothing is changed then. A failure while pool or scheduler
//     are torn down ends the process.
// Lifetime: the last uninitialisation belongs before the end of main(): never into DllMain or into the destructor of
//     a DLL's static object, where the library's threads are already dead or cannot end.
//
// On purpose: one uninitialisation too many is not repaired. The count goes to -1, nothing is torn down, and one extra
// initialisation is needed before the library counts as initialised again.
#pragma once

#include "concurrency/base/export.h"

namespace Orvane {

ORVANE_CONCURRENCY_API void ConcurrencyInitialize();
ORVANE_CONCURRENCY_API void ConcurrencyUninitialize();

// Initialises on construction, uninitialises on destruction.
class ORVANE_CONCURRENCY_API ConcurrencyLifetime {
  public:
    ConcurrencyLifetime();
    ~ConcurrencyLifetime() noexcept;
    ConcurrencyLifetime(const ConcurrencyLifetime&) = delete;
    ConcurrencyLifetime& operator=(const ConcurrencyLifetime&) = delete;
};

namespace Internal {

// Whether initialisations outnumber uninitialisations. Takes no lock: it may be asked by a thread that the last
// uninitialisation is waiting for, and until that has ended it still answers true.
ORVANE_CONCURRENCY_API bool IsConcurrencyInitialized();

}  // namespace Internal
}  // namespace Orvane
