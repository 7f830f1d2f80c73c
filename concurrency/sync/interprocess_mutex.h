#pragma once

#include <atomic>
#include <string>

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"

namespace Orvane {

struct InterprocessMutexPeer;

// An exclusive mutex that processes share through its name: a Win32 kernel mutex.
//
// Threads: the thread that locked must unlock.
// Memory: everything before unlock() is visible to the next owner, of shared memory in other processes too.
// Recursion: the owner may lock again; each lock needs its own unlock.
// Cancellation: lock() is a cancellation point.
// Errors: LockException from lock() and unlock(), with a report; std::runtime_error if the mutex cannot be created,
//     and, without a report, if ZARVO_OBJECTS_NAMESPACE is no namespace.
//     On purpose a mutex whose owner died is a failed lock(): LockException, although the caller owns the mutex then.
//     To go on: catch, unlock(), lock() again, and repair under that lock what the owner left: another process may have
//     been first.
// Lifetime: destroying it while locked is reported; the platform's mutex is then abandoned or stays with its owner.
class ORVANE_CONCURRENCY_API interprocess_mutex {
  public:
    // Without a name, private to this object.
    interprocess_mutex();

    // A name without a backslash is placed in the framework's namespace of kernel objects: behind "Global\ZARVO_", or
    // what the environment variable ZARVO_OBJECTS_NAMESPACE puts in its place. One with a backslash is used as it is.
    // Null: no name. An existing mutex of that name is opened.
    interprocess_mutex(const wchar_t* name);

    // Closes the handle; a locked mutex is reported.
    ~interprocess_mutex();
    interprocess_mutex(const interprocess_mutex&) = delete;
    interprocess_mutex& operator=(const interprocess_mutex&) = delete;

    // Blocks until the caller owns the mutex.
    void lock();

    // Gives one lock back, on the thread that locked.
    void unlock();

    // The full name of a mutex that is constructed with `name`, which must not be null: see there.
    std::wstring CheckAndPrependZarvoObjectsNamespace(const wchar_t* name);

  private:
    friend struct InterprocessMutexPeer;  // of the tests

    HANDLE m_handle;

    // For diagnosis; written by the thread that locks or unlocks, the latter after the mutex is free.
    std::atomic<bool> m_locked = false;
    std::atomic<DWORD> m_owner = 0;
};

}  // namespace Orvane
