// Kernel objects and waits on them: events, mutexes, threads.
#pragma once

#include "tests/host/windows/types.h"

#define WAIT_OBJECT_0 0UL
#define WAIT_ABANDONED_0 0x80UL
#define WAIT_ABANDONED 0x80UL
#define WAIT_TIMEOUT 258L
#define WAIT_FAILED 0xFFFFFFFFUL
#define MAXIMUM_WAIT_OBJECTS 64
#define SYNCHRONIZE 0x00100000L
#define DUPLICATE_SAME_ACCESS 2

extern "C" {
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name);
HANDLE OpenMutexW(DWORD access, BOOL inherit, LPCWSTR name);
BOOL ReleaseMutex(HANDLE mutex);

BOOL CloseHandle(HANDLE handle);
BOOL DuplicateHandle(HANDLE fromProcess, HANDLE handle, HANDLE toProcess, HANDLE* copy, DWORD access, BOOL inherit,
                     DWORD options);

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds);
}
