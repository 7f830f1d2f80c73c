// Critical sections and slim locks: locks of their own, so that the sanitizers see them as such.

#include <atomic>

#include "tests/host/windows/errors.h"
#include "tests/host/windows/threads.h"

void InitializeCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&section->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void DeleteCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_destroy(&section->mutex);
}

void EnterCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_lock(&section->mutex);
}

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) {
    return pthread_mutex_trylock(&section->mutex) == 0 ? TRUE : FALSE;
}

void LeaveCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_unlock(&section->mutex);
}

BOOL SleepConditionVariableCS(PCONDITION_VARIABLE, PCRITICAL_SECTION, DWORD) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
}

namespace {

// What a slim lock's word points to while it is held.
constinit char g_held = 0;

}  // namespace

void AcquireSRWLockExclusive(PSRWLOCK lock) {
    const std::atomic_ref word(lock->word);
    while (word.exchange(&g_held) != nullptr) {
        word.wait(&g_held);
    }
}

void ReleaseSRWLockExclusive(PSRWLOCK lock) {
    const std::atomic_ref word(lock->word);
    word.store(nullptr);
    word.notify_one();
}

// A wake-up between the release and the sleep has changed the number.
BOOL SleepConditionVariableSRW(PCONDITION_VARIABLE condition, PSRWLOCK lock, DWORD milliseconds, ULONG flags) {
    if (milliseconds != INFINITE || flags != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    const std::atomic_ref wakeUps(condition->wakeUps);
    const std::uintptr_t seen = wakeUps.load();
    ReleaseSRWLockExclusive(lock);
    wakeUps.wait(seen);
    AcquireSRWLockExclusive(lock);
    return TRUE;
}

void WakeAllConditionVariable(PCONDITION_VARIABLE condition) {
    const std::atomic_ref wakeUps(condition->wakeUps);
    ++wakeUps;
    wakeUps.notify_all();
}
