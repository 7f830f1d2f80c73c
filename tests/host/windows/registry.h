// A registry in memory: one for each process, empty at first.
#pragma once

#include "tests/host/windows/types.h"

#define REG_NONE 0UL
#define REG_SZ 1UL
#define REG_EXPAND_SZ 2UL
#define REG_BINARY 3UL
#define REG_DWORD 4UL
#define REG_DWORD_BIG_ENDIAN 5UL
#define REG_LINK 6UL
#define REG_MULTI_SZ 7UL
#define REG_QWORD 11UL
#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F
#define REG_OPTION_NON_VOLATILE 0
#define REG_OPTION_VOLATILE 1
#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(std::uintptr_t{0x80000000}))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(std::uintptr_t{0x80000001}))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(std::uintptr_t{0x80000002}))

using REGSAM = DWORD;

extern "C" {
LSTATUS RegOpenKeyExW(HKEY parent, LPCWSTR path, DWORD options, REGSAM access, PHKEY key);
LSTATUS RegCreateKeyExW(HKEY parent, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                        LPSECURITY_ATTRIBUTES security, PHKEY key, LPDWORD disposition);
LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name);
LSTATUS RegDeleteTreeW(HKEY parent, LPCWSTR path);
LSTATUS RegDeleteKeyW(HKEY parent, LPCWSTR path);
LSTATUS RegOverridePredefKey(HKEY predefined, HKEY replacement);
LSTATUS RegCloseKey(HKEY key);
}
