// Memory by pages.
#pragma once

#include "tests/host/windows/types.h"

#define MEM_COMMIT 0x1000
#define MEM_RESERVE 0x2000
#define MEM_RELEASE 0x8000
#define PAGE_NOACCESS 0x01
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define FILE_MAP_WRITE 0x0002

extern "C" {
LPVOID VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection);

// On purpose changes nothing of what is allocated: the size is not known here any more.
BOOL VirtualFree(LPVOID address, SIZE_T size, DWORD type);

BOOL VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, DWORD* before);

// Memory that has a name: on purpose for this process alone.
HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD sizeHigh, DWORD sizeLow,
                          LPCWSTR name);
LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T size);
BOOL UnmapViewOfFile(const void* view);
}
