// The scheduler's configuration for this process: HKEY_LOCAL_MACHINE is an empty key of its own.
//
// Threads: any.
// Errors: std::runtime_error if the system refuses.
// Lifetime: one at a time. The key is volatile and named after the process; it goes with the object.
#pragma once

#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

class ScratchConfiguration {
  public:
    ScratchConfiguration() {
        Check(RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, &m_root, nullptr));
        Check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_root));
    }
    ~ScratchConfiguration() {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(m_root);
        RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
    }
    ScratchConfiguration(const ScratchConfiguration&) = delete;
    ScratchConfiguration& operator=(const ScratchConfiguration&) = delete;

    // The key that holds the scheduler's configuration, without a value.
    void MakeSchedulerKey() { RegCloseKey(OpenSchedulerKey()); }

    // The value that says what an overrun does, of any type.
    void SetAssertMode(DWORD type, const void* data, DWORD size) {
        const HKEY key = OpenSchedulerKey();
        Check(RegSetValueExW(key, L"IntervalExceededAssertMode", 0, type, static_cast<const BYTE*>(data), size));
        RegCloseKey(key);
    }
    void SetAssertMode(DWORD mode) { SetAssertMode(REG_DWORD, &mode, sizeof mode); }

  private:
    static void Check(LSTATUS status) {
        if (status != ERROR_SUCCESS) {
            throw std::runtime_error("ScratchConfiguration: error " + std::to_string(status));
        }
    }

    HKEY OpenSchedulerKey() {
        HKEY key = nullptr;
        Check(RegCreateKeyExW(m_root, L"Software\\ZARVO\\Orvane\\SchedulerConfiguration\\Default", 0, nullptr,
                              REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, nullptr));
        return key;
    }

    const std::wstring m_path = L"Software\\ZarvoConcurrencyTest-" + std::to_wstring(GetCurrentProcessId());
    HKEY m_root = nullptr;
};

}  // namespace Zarvo::Test
