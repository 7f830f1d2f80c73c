#include "concurrency/scheduler/scheduler_configuration.h"

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

constexpr wchar_t kKey[] = L"Software\\ZARVO\\Orvane\\SchedulerConfiguration\\Default";
constexpr wchar_t kAssertMode[] = L"IntervalExceededAssertMode";

}  // namespace

void SchedulerConfiguration::Read() noexcept {
    IntervalExceededAssertMode = 0;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WRITE, &key) != ERROR_SUCCESS) {
        return;
    }
    DWORD type = REG_NONE;
    DWORD value = 0;
    DWORD size = sizeof value;
    const LSTATUS status = RegQueryValueExW(key, kAssertMode, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    if (status == ERROR_SUCCESS && type == REG_DWORD) {
        IntervalExceededAssertMode = value;
    }
    RegCloseKey(key);
}

}  // namespace Orvane::Internal
