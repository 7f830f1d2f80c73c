// Modules that are loaded, and the functions in them.
#pragma once

#include "tests/host/windows/types.h"

extern "C" {
// Null: the program. The platform's own modules are this library; X.dll is X.so here.
HMODULE GetModuleHandleW(LPCWSTR name);
// From the program's own folder.
HMODULE LoadLibraryW(LPCWSTR name);
BOOL FreeLibrary(HMODULE module);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
}
