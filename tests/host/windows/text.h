// Wide text: in the environment, converted, formatted.
#pragma once

#include <cstdarg>

#include "tests/host/windows/types.h"

#define CP_ACP 0
#define CP_THREAD_ACP 3
#define CP_UTF8 65001
#define _TRUNCATE (static_cast<std::size_t>(-1))

// There is one language here; another one is refused.
#define LANG_RUSSIAN 0x19
#define SUBLANG_DEFAULT 1
#define SORT_DEFAULT 0
#define MAKELANGID(primary, sub) (static_cast<WORD>(((sub) << 10) | (primary)))
#define MAKELCID(language, sort) (static_cast<LCID>(((sort) << 16) | (language)))

using LPCWCH = const wchar_t*;
using LPCCH = const char*;
using LPBOOL = BOOL*;

extern "C" {
LCID GetThreadLocale();
BOOL SetThreadLocale(LCID locale);

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD capacity);
BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);

// Every code page is Latin 1, or UTF-8 where that is asked for.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR narrow, int capacity,
                        LPCSTR replacement, BOOL* replaced);
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR narrow, int length, LPWSTR wide, int capacity);

int _vsnwprintf_s(wchar_t* text, std::size_t capacity, std::size_t count, const wchar_t* format, va_list arguments);
}
