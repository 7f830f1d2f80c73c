#include "examples/file_digests/output.h"

#include <algorithm>

#include "examples/file_digests/file_error.h"
#include "examples/file_digests/utf8.h"

namespace FileDigests {

namespace {

// What one call writes at most: a console takes less than 64 KiB.
constexpr std::size_t kPiece = 8192;

bool IsConsoleHandle(HANDLE handle) {
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

}  // namespace

Output::Output(DWORD stream) : m_handle(GetStdHandle(stream)), m_isConsole(IsConsoleHandle(m_handle)) {}

int Output::Columns() const {
    CONSOLE_SCREEN_BUFFER_INFO information{};
    return GetConsoleScreenBufferInfo(m_handle, &information) ? information.dwSize.X : 0;
}

void Output::Write(std::string_view text) {
    if (m_isConsole) {
        WriteToConsole(text);
    } else {
        WriteBytes(text);
    }
}

void Output::WriteToConsole(std::string_view text) {
    const std::wstring wide = ToUtf16(text);
    for (std::size_t done = 0; done < wide.size();) {
        DWORD count = 0;
        const auto piece = static_cast<DWORD>(std::min(wide.size() - done, kPiece));
        if (!WriteConsoleW(m_handle, wide.data() + done, piece, &count, nullptr)) {
            throw FileError("write to the console");
        }
        done += count;
    }
}

void Output::WriteBytes(std::string_view text) {
    while (!text.empty()) {
        DWORD count = 0;
        if (!WriteFile(m_handle, text.data(), static_cast<DWORD>(std::min(text.size(), kPiece * 8)), &count, nullptr)) {
            throw FileError("write");
        }
        text.remove_prefix(count);
    }
}

}  // namespace FileDigests
