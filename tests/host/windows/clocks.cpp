#include "tests/host/windows/clocks.h"

#include <chrono>
#include <ctime>

namespace {

constexpr std::int64_t kFileTimeOf1970 = 116'444'736'000'000'000;

using FileTimeTicks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

}  // namespace

DWORD GetTickCount() {
    return static_cast<std::uint32_t>(GetTickCount64());
}

unsigned long long GetTickCount64() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
    frequency->QuadPart = 10'000'000;
    return TRUE;
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    counter->QuadPart = std::chrono::duration_cast<FileTimeTicks>(now).count();
    return TRUE;
}

void GetSystemTimePreciseAsFileTime(LPFILETIME time) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t ticks = std::chrono::duration_cast<FileTimeTicks>(now).count() + kFileTimeOf1970;
    time->dwLowDateTime = static_cast<std::uint32_t>(ticks);
    time->dwHighDateTime = static_cast<std::uint32_t>(ticks >> 32);
}

BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* parts) {
    const auto ticks = static_cast<std::int64_t>((time->dwHighDateTime << 32) | time->dwLowDateTime) - kFileTimeOf1970;
    const std::time_t seconds = ticks / 10'000'000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    parts->wYear = static_cast<WORD>(utc.tm_year + 1900);
    parts->wMonth = static_cast<WORD>(utc.tm_mon + 1);
    parts->wDayOfWeek = static_cast<WORD>(utc.tm_wday);
    parts->wDay = static_cast<WORD>(utc.tm_mday);
    parts->wHour = static_cast<WORD>(utc.tm_hour);
    parts->wMinute = static_cast<WORD>(utc.tm_min);
    parts->wSecond = static_cast<WORD>(utc.tm_sec);
    parts->wMilliseconds = static_cast<WORD>(ticks / 10'000 % 1000);
    return TRUE;
}
