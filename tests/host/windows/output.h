// Standard error and the debugger.
#pragma once

#include "tests/host/windows/types.h"

#define STD_ERROR_HANDLE (static_cast<DWORD>(-12))

extern "C" {
// Only standard error is known.
HANDLE GetStdHandle(DWORD which);

// Only to standard error. The last argument is null.
BOOL WriteFile(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPVOID overlapped);

// Nobody listens.
void OutputDebugStringA(LPCSTR text);
}
