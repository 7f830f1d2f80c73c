// Win32 error codes as they stand in messages.
#pragma once

#include "concurrency/base/win32.h"

namespace Orvane::Internal {

// Values of 0 or less, as a signed number, stay as they are; positive ones become HRESULTs of facility Win32.
constexpr unsigned HresultOf(DWORD error) noexcept {
    constexpr unsigned kFacilityWin32 = 0x80070000;
    return static_cast<int>(error) <= 0 ? static_cast<unsigned>(error)
                                        : (static_cast<unsigned>(error) & 0xFFFFU) | kFacilityWin32;
}

}  // namespace Orvane::Internal
