// What the library reports when a recurrent task runs for longer than its interval.
#pragma once

namespace Zarvo::Test {

inline constexpr const wchar_t* kOverrun = L"TaskImpl %s taking longer to execute than scheduled interval";

}  // namespace Zarvo::Test
