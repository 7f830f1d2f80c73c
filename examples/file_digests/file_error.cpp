#include "examples/file_digests/file_error.h"

#include <format>
#include <iterator>

#include "examples/file_digests/utf8.h"

namespace FileDigests {

namespace {

// The system's text without the line break at its end; empty if it has none.
std::wstring SystemText(DWORD error) {
    wchar_t text[512];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                  static_cast<DWORD>(std::size(text)), nullptr);
    while (length != 0 && text[length - 1] <= L' ') {
        --length;
    }
    return std::wstring(text, length);
}

}  // namespace

std::string FileError::Message() const {
    const std::wstring text = SystemText(m_error);
    return std::format("cannot {}: {}{}(error {})", m_action, ToUtf8(text), text.empty() ? "" : " ", m_error);
}

}  // namespace FileDigests
