// Modules that are loaded, and the functions in them.
#pragma once

#include "tests/host/windows/types.h"

extern "C" {
// Null: the program. The platform's own modules are this library; X.dll is X.so here.
HMODULE GetModuleHandleW(LPCWSTR name);
#define GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT 0x2
#define GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS 0x4
// Only by address, which `name` is.
BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module);
// From the program's own folder.
HMODULE LoadLibraryW(LPCWSTR name);
BOOL FreeLibrary(HMODULE module);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
}
