// The logging library's output to files and standard error, with this system's own calls.
#include "zarvo_orvane_logging/line_output.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "zarvo_orvane_logging/report_line.h"

namespace Orvane::Reports {

namespace {

// A file's number plus one: null is no file.
int NumberOf(void* handle) noexcept {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1;
}

bool WriteLine(int file, std::wstring_view line) noexcept {
    Utf8Text bytes;
    EncodeUtf8(line, bytes);
    const std::string_view text = bytes.Text();
    return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

void WriteToStandardError(std::wstring_view line) noexcept {
    WriteLine(STDERR_FILENO, line);
}

LineFile::LineFile(const wchar_t* path) {
    std::string name;
    for (; *path != L'\0'; ++path) {
        name += static_cast<char>(*path);
    }
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open the log file \"" + name + "\"");
    }
    m_handle = reinterpret_cast<void*>(std::intptr_t{file} + 1);
}

bool LineFile::Append(std::wstring_view line) const noexcept {
    return WriteLine(NumberOf(m_handle), line);
}

void LineFile::Close() noexcept {
    if (m_handle != nullptr) {
        close(NumberOf(m_handle));
        m_handle = nullptr;
    }
}

}  // namespace Orvane::Reports
