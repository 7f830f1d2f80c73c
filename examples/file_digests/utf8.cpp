#include "examples/file_digests/utf8.h"

#include <windows.h>

namespace FileDigests {

namespace {

constexpr bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8(std::string& text, char32_t point) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += static_cast<char>(0xC0 | (point >> 6));
        tail(0);
    } else if (point < 0x10000) {
        text += static_cast<char>(0xE0 | (point >> 12));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | (point >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        if (IsHighSurrogate(point) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++i] - char32_t{0xDC00});
        }
        AppendUtf8(utf8, point);
    }
    return utf8;
}

std::wstring ToUtf16(std::string_view text) {
    const auto convert = [&](std::wstring& wide) {
        return MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                   static_cast<int>(wide.size()));
    };
    std::wstring wide;
    wide.resize(static_cast<std::size_t>(convert(wide)));
    convert(wide);
    return wide;
}

}  // namespace FileDigests
