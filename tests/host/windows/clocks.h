// Ticks, the performance counter and the wall clock.
#pragma once

#include "tests/host/windows/types.h"

extern "C" {
DWORD GetTickCount();
unsigned long long GetTickCount64();
BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);
BOOL QueryPerformanceCounter(LARGE_INTEGER* counter);
void GetSystemTimePreciseAsFileTime(LPFILETIME time);
BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* parts);
}
