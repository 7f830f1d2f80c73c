// Threads, their ids, slots and locks.
#pragma once

#include "tests/host/windows/types.h"

#define TLS_OUT_OF_INDEXES 0xFFFFFFFFUL

#include <pthread.h>
#include <cstdint>

struct CRITICAL_SECTION {
    pthread_mutex_t mutex;
    HANDLE OwningThread;  // of the loader's lock only, which has no owner here
};
using PCRITICAL_SECTION = CRITICAL_SECTION*;
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

struct SRWLOCK {
    void* word;
};
using PSRWLOCK = SRWLOCK*;

struct CONDITION_VARIABLE {
    std::uintptr_t wakeUps;
};
using PCONDITION_VARIABLE = CONDITION_VARIABLE*;

#define THREAD_TERMINATE 0x0001
#define THREAD_QUERY_LIMITED_INFORMATION 0x0800

extern "C" {
DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();
HANDLE GetCurrentThread();
HANDLE GetCurrentProcess();
HANDLE OpenThread(DWORD access, BOOL inherit, DWORD id);

// The thread stops where it is and keeps what it holds, but its memory stays.
BOOL TerminateThread(HANDLE thread, DWORD exitCode);

DWORD GetThreadId(HANDLE thread);
DWORD GetProcessId(HANDLE process);
HRESULT SetThreadDescription(HANDLE thread, PCWSTR description);
HRESULT GetThreadDescription(HANDLE thread, PWSTR* description);

// Answers the description of a thread (38), and nothing else: its length and its size in bytes, where it is, and behind that
// its characters.
LONG NtQueryInformationThread(HANDLE thread, int what, LPVOID answer, ULONG size, ULONG* used);
HLOCAL LocalFree(HLOCAL memory);
void Sleep(DWORD milliseconds);
BOOL SwitchToThread();

#define ALL_PROCESSOR_GROUPS 0xffff
DWORD GetActiveProcessorCount(WORD group);

DWORD TlsAlloc();
BOOL TlsFree(DWORD slot);
LPVOID TlsGetValue(DWORD slot);
BOOL TlsSetValue(DWORD slot, LPVOID value);

void InitializeCriticalSection(LPCRITICAL_SECTION section);
void DeleteCriticalSection(LPCRITICAL_SECTION section);
void EnterCriticalSection(LPCRITICAL_SECTION section);
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
void LeaveCriticalSection(LPCRITICAL_SECTION section);

// Fails: nothing sleeps in one here. For tests that put something else in its place.
BOOL SleepConditionVariableCS(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, DWORD milliseconds);

void AcquireSRWLockExclusive(PSRWLOCK lock);
void ReleaseSRWLockExclusive(PSRWLOCK lock);

// Without a limit and without flags only.
BOOL SleepConditionVariableSRW(PCONDITION_VARIABLE condition, PSRWLOCK lock, DWORD milliseconds, ULONG flags);
void WakeAllConditionVariable(PCONDITION_VARIABLE condition);
}
