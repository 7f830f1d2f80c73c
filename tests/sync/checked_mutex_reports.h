// Where a checked_mutex says that its reports come from, and what its destructor reports.
#pragma once

namespace Zarvo::Test {

inline constexpr const wchar_t* kInLock = L"checked_mutex::lock";
inline constexpr const wchar_t* kInDestructor = L"checked_mutex::~checked_mutex";

}  // namespace Zarvo::Test
