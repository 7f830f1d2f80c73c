// Text leaves the program as UTF-8 and comes from the system as UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace FileDigests {

// On purpose: an unpaired surrogate, which file names may hold and UTF-8 cannot, becomes the three bytes that its code
// point would have. So different names stay different.
std::string ToUtf8(std::wstring_view text);

// For text that goes to a console: what is no UTF-8 becomes U+FFFD.
std::wstring ToUtf16(std::string_view text);

}  // namespace FileDigests
