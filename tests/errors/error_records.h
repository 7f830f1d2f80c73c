// Records with recognisable contents in both forms.
#pragma once

#include <guiddef.h>

#include <cstddef>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "concurrency/errors/error_storage.h"

namespace Zarvo::Test {

inline constexpr GUID kSomeGuid{0x01020304, 0x0506, 0x0708, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}};
inline constexpr GUID kZeroGuid{};
inline constexpr wchar_t kSomeName[] = L"Zarvo.Test.Disk";

inline void SetMessages(Orvane::ErrorStorage& error, const char* narrow, const std::wstring& wide) {
    static_cast<std::runtime_error&>(error) = std::runtime_error(narrow);
    std::wmemcpy(error.message, wide.c_str(), wide.size() + 1);
}

inline Orvane::ErrorStorage ComRecord(long hresult, const GUID& guid) {
    Orvane::ErrorStorage error;
    error.isNamed = false;
    error.hresult = static_cast<std::int32_t>(hresult);
    error.guid = guid;
    SetMessages(error, "narrow text", L"wide text");
    return error;
}

inline Orvane::ErrorStorage NamedRecord(const wchar_t* name, unsigned int code) {
    Orvane::ErrorStorage error;
    error.isNamed = true;
    error.name = name;
    error.code = code;
    SetMessages(error, "narrow text", L"wide text");
    return error;
}

}  // namespace Zarvo::Test
