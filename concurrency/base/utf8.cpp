#include "concurrency/base/utf8.h"

#include <cstddef>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

std::string ToUtf8(const std::wstring& text) {
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr, nullptr);
    return narrow;
}

}  // namespace Orvane::Internal
