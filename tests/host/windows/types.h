// The names and constants of the platform's types.
//
// On purpose: DWORD, LONG and HRESULT are 64 bits wide here, as `long` is on this system: the library's own typedefs say
// `unsigned long`, which is what the platform says. What depends on their wrapping at 32 bits is not run here.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define NTAPI
#define CONST const
#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFF

using BOOL = int;
using BOOLEAN = unsigned char;
using BYTE = unsigned char;
using WORD = unsigned short;
using USHORT = unsigned short;
using UINT = unsigned int;
typedef unsigned long DWORD;  // NOLINT(modernize-use-using): repeated by the library's own header
using LONG = long;
using ULONG = unsigned long;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using LCID = DWORD;
using LANGID = WORD;
using LSTATUS = LONG;
using HRESULT = LONG;
typedef void* HANDLE;  // NOLINT(modernize-use-using)
using LPVOID = void*;
using LPDWORD = DWORD*;
using LPBYTE = BYTE*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;

struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE__*;
struct HKEY__;
using HKEY = HKEY__*;
using PHKEY = HKEY*;
using HLOCAL = void*;
using FARPROC = long (*)();

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME*;

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

union LARGE_INTEGER {
    LONGLONG QuadPart;
};

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(std::intptr_t{-1}))
#define SUCCEEDED(result) ((result) >= 0)
#define FAILED(result) ((result) < 0)
