// Registry, apartments, modules, clocks and texts.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"

#include <objbase.h>

#include "tests/platform/own_name.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Zarvo::Test;

const std::wstring kScratch = L"Software\\" + OwnName(L"Platform");

DWORD Stored(HKEY key, const wchar_t* name, DWORD& type) {
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size), ERROR_SUCCESS);
    return value;
}

HKEY Created(HKEY parent, const std::wstring& path) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    return key;
}

TEST(PlatformRegistry, KeepsWhatIsWritten) {
    const HKEY key = Created(HKEY_LOCAL_MACHINE, kScratch);
    const DWORD value = 17;
    RegSetValueExW(key, L"Value", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
    HKEY opened = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, (L"SOFTWARE" + kScratch.substr(8)).c_str(), 0, KEY_READ, &opened),
              ERROR_SUCCESS);

    DWORD type = REG_NONE;
    EXPECT_EQ(Stored(opened, L"value", type), 17U);
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kScratch.c_str()), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(opened), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST(PlatformRegistry, MissingKeyAndMissingValueAreNotFound) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Nowhere", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    const HKEY made = Created(HKEY_CURRENT_USER, kScratch);
    EXPECT_EQ(RegQueryValueExW(made, L"Value", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    RegCloseKey(made);
    RegDeleteTreeW(HKEY_CURRENT_USER, kScratch.c_str());
}

TEST(PlatformRegistry, ValueThatDoesNotFitTellsItsSize) {
    const HKEY key = Created(HKEY_CURRENT_USER, kScratch);
    const BYTE data[100] = {};
    RegSetValueExW(key, L"Value", 0, REG_BINARY, data, sizeof data);
    BYTE room[4];
    DWORD size = sizeof room;

    EXPECT_EQ(RegQueryValueExW(key, L"Value", nullptr, nullptr, room, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, sizeof data);
    RegCloseKey(key);
    RegDeleteTreeW(HKEY_CURRENT_USER, kScratch.c_str());
}

TEST(PlatformRegistry, PredefinedKeyIsReplacedAndPutBack) {
    const HKEY replacement = Created(HKEY_CURRENT_USER, kScratch);
    RegCloseKey(Created(replacement, L"Inside"));
    HKEY key = nullptr;
    ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, replacement), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Inside", 0, KEY_READ, &key), ERROR_SUCCESS);
    RegCloseKey(key);
    ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr), ERROR_SUCCESS);

    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Inside", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    RegCloseKey(replacement);
    RegDeleteTreeW(HKEY_CURRENT_USER, kScratch.c_str());
}

TEST(PlatformApartment, IsEnteredAgainAndLeftAsOften) {
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
    CoUninitialize();
    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
    EXPECT_EQ(type, APTTYPE_MTA);
    CoUninitialize();

    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), CO_E_NOTINITIALIZED);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    CoUninitialize();
}

TEST(PlatformModule, FindsThePlatformsFunctions) {
    const HMODULE kernel = GetModuleHandleW(L"kernel32");
    ASSERT_NE(kernel, nullptr);

    EXPECT_NE(GetProcAddress(kernel, "SetThreadDescription"), nullptr);
    EXPECT_EQ(GetProcAddress(kernel, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetModuleHandleW(L"nosuchmodule.dll"), nullptr);
}

TEST(PlatformModule, ImportsOfOneModuleAreReplacedForAScope) {
    const HMODULE library = Zarvo::Test::LibraryUnderTest();
    const HANDLE real = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    {
        const Zarvo::Test::ImportPatch patch(
            library, "CreateEventW", +[](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) { return HANDLE{nullptr}; });
        EXPECT_NE(Zarvo::Test::ImportedFunction(library, "CreateEventW"), nullptr);
        const HANDLE ours = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        EXPECT_NE(ours, nullptr);  // this program's imports are as they were
        CloseHandle(ours);
    }
    EXPECT_THROW(Zarvo::Test::ImportPatch(library, "NoSuchFunction", +[] {}), std::runtime_error);
    CloseHandle(real);
}

std::uint64_t FileTimeNow() {
    FILETIME time;
    GetSystemTimePreciseAsFileTime(&time);
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
}

TEST(PlatformClock, TicksAndFileTimesAdvance) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    LARGE_INTEGER before;
    QueryPerformanceCounter(&before);
    const DWORD ticks = GetTickCount();
    const std::uint64_t time = FileTimeNow();
    Sleep(20);
    LARGE_INTEGER after;
    QueryPerformanceCounter(&after);

    EXPECT_GE(after.QuadPart - before.QuadPart, frequency.QuadPart / 50);
    EXPECT_GE(static_cast<std::uint32_t>(GetTickCount() - ticks), 4U);  // it goes in steps of up to 16 ms
    EXPECT_NE(FileTimeNow(), time);
}

TEST(PlatformClock, FileTimeIsTakenApart) {
    constexpr std::uint64_t k1970 = 116'444'736'000'000'000;
    constexpr std::uint64_t kTicks = k1970 + (std::uint64_t{32} * 86400 + 3661) * 10'000'000 + 1'230'000;
    const FILETIME time{static_cast<std::uint32_t>(kTicks), static_cast<std::uint32_t>(kTicks >> 32)};
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&time, &parts);

    EXPECT_EQ(parts.wYear, 1970);
    EXPECT_EQ(parts.wMonth, 2);
    EXPECT_EQ(parts.wDay, 2);
    EXPECT_EQ(parts.wHour, 1);
    EXPECT_EQ(parts.wMinute, 1);
    EXPECT_EQ(parts.wSecond, 1);
    EXPECT_EQ(parts.wMilliseconds, 123);
}

int Format(wchar_t* text, std::size_t capacity, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = _vsnwprintf_s(text, capacity, _TRUNCATE, format, arguments);
    va_end(arguments);
    return length;
}

TEST(PlatformText, PlainTextIsWideAndShortTextNarrow) {
    wchar_t text[64];
    EXPECT_EQ(Format(text, 64, L"%s|%hs|%5d|%x|100%%", L"wide", "narrow", 42, 255U), 25);
    EXPECT_EQ(std::wstring(text), L"wide|narrow|   42|ff|100%");
}

TEST(PlatformText, WhatDoesNotFitIsCutAndSaysSo) {
    wchar_t text[5];
    EXPECT_EQ(Format(text, 5, L"%s", L"too long"), -1);
    EXPECT_EQ(std::wstring(text), L"too ");
}

TEST(PlatformText, IsConvertedToUtf8AndBack) {
    const std::wstring wide = L"Gr\u00FC\u00DFe \u2026 \U0001F600";
    char narrow[64];
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, narrow, 64, nullptr, nullptr);
    wchar_t back[64];
    MultiByteToWideChar(CP_UTF8, 0, narrow, size, back, 64);

    EXPECT_EQ(std::wstring(back), wide);
}

TEST(PlatformText, IsNotConvertedByAFlagThatNoCodePageHas) {
    char narrow[64];
    EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 1, L"text", -1, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 1, L"text", -1, narrow, 64, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_FLAGS});
}

TEST(PlatformText, EnvironmentTellsTheSizeItNeeds) {
    SetEnvironmentVariableW(L"HOST_TEST", L"value");
    wchar_t value[6];
    EXPECT_EQ(GetEnvironmentVariableW(L"HOST_TEST", value, 3), 6U);
    EXPECT_EQ(GetEnvironmentVariableW(L"HOST_TEST", value, 6), 5U);
    EXPECT_EQ(std::wstring(value), L"value");
    SetEnvironmentVariableW(L"HOST_TEST", nullptr);
    EXPECT_EQ(GetEnvironmentVariableW(L"HOST_TEST", value, 6), 0U);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
}

}  // namespace
