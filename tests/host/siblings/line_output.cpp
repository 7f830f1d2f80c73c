// The logging library's output to files and standard error, with this system's own calls.
#include "zarvo_orvane_logging/line_output.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace Orvane::Reports {

namespace {

// A file's number plus one: null is no file.
int NumberOf(void* handle) noexcept {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1;
}

bool WriteLines(int file, std::string_view lines) noexcept {
    return write(file, lines.data(), lines.size()) == static_cast<ssize_t>(lines.size());
}

}  // namespace

void WriteToStandardError(std::string_view lines) noexcept {
    WriteLines(STDERR_FILENO, lines);
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

bool LineFile::Append(std::string_view lines) const noexcept {
    return WriteLines(NumberOf(m_handle), lines);
}

void LineFile::Close() noexcept {
    if (m_handle != nullptr) {
        close(NumberOf(m_handle));
        m_handle = nullptr;
    }
}

}  // namespace Orvane::Reports
