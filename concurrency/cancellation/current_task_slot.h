// The thread-local slot that holds each thread's current future, weakly: a slot never keeps a future alive.
//
// Two slots can be in use. The library's own lives from the first initialisation to the last uninitialisation. Before and
// after that a reserve takes its place, so that tasks hear of their cancellation in that state too.
//
// Threads: CurrentFuture() and ExchangeCurrentFuture() are about the calling thread. AllocateCurrentTaskSlot() and
//     FreeCurrentTaskSlot() are for lifetime/, under its mutex; all others may be called on any thread at any time.
// Errors: std::bad_alloc from ExchangeCurrentFuture() on a thread that has no current future.
#pragma once

#include <memory>

#include "concurrency/base/win32.h"

namespace Orvane::Internal {

class FutureState;

// The future of the task that the calling thread runs; empty if there is none or it has expired.
std::shared_ptr<FutureState> CurrentFuture();

// Makes `future` the calling thread's current one and returns the one before it. An empty or expired pointer leaves the
// thread without a current future.
std::weak_ptr<FutureState> ExchangeCurrentFuture(std::weak_ptr<FutureState> future);

// On purpose: a failed TlsAlloc is not detected, and the index is handed to TlsFree all the same.
void AllocateCurrentTaskSlot() noexcept;
void FreeCurrentTaskSlot() noexcept;

// The index in use: the library's own slot, or the reserve, which the first call allocates.
DWORD CurrentTaskSlot() noexcept;

// For the module's entry point, at unload.
void FreeReserveSlot() noexcept;

}  // namespace Orvane::Internal
