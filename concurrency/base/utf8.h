// Texts for messages and exceptions, which are in UTF-8.
#pragma once

#include <string>

namespace Orvane::Internal {

// Errors: std::bad_alloc.
std::string ToUtf8(const std::wstring& text);

}  // namespace Orvane::Internal
