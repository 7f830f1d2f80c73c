// The file of the trace, with this system's own calls: each line is written with one write.
#include "zarvo_orvane_logging/trace_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace Orvane::Reports {

namespace {

// A file's number plus one: null is no file.
int NumberOf(void* handle) noexcept {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1;
}

std::string Narrow(const wchar_t* path) {
    std::string name;
    for (; *path != L'\0'; ++path) {
        name += static_cast<char>(*path);
    }
    return name;
}

}  // namespace

unsigned long TraceFile::Open(const wchar_t* path) noexcept {
    const int file = open(Narrow(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) {
        return static_cast<unsigned long>(errno);
    }
    m_handle = reinterpret_cast<void*>(std::intptr_t{file} + 1);
    m_size = 0;
    return 0;
}

bool TraceFile::Append(std::string_view first, std::string_view second) noexcept {
    const std::string line = std::string(first) + std::string(second);
    m_size += line.size();
    return write(NumberOf(m_handle), line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

void TraceFile::Trim() noexcept {}

void TraceFile::Close() noexcept {
    if (m_handle != nullptr) {
        close(NumberOf(m_handle));
        m_handle = nullptr;
    }
}

ProgramName::ProgramName() noexcept {
    std::wstring_view(L"program").copy(text.data(), text.size() - 1);
}

unsigned long MoveTraceFile(const wchar_t* from, const wchar_t* to) noexcept {
    return rename(Narrow(from).c_str(), Narrow(to).c_str()) == 0 ? 0 : static_cast<unsigned long>(errno);
}

}  // namespace Orvane::Reports
