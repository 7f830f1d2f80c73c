#include "zarvo_orvane_logging/trace_file.h"

#include <algorithm>
#include <iterator>

#include <windows.h>

namespace Orvane::Reports {

namespace {

constexpr std::uint64_t kGranularity = 65536;  // where views may begin
constexpr std::uint64_t kPiece = 4 * kGranularity;

// Writes them behind the end of the file.
bool WriteBlanks(HANDLE file, std::uint64_t begin, std::uint64_t count) noexcept {
    static char blanks[kGranularity] = {};
    if (blanks[0] == '\0') {
        std::fill(std::begin(blanks), std::end(blanks), ' ');
    }
    LARGE_INTEGER where;
    where.QuadPart = static_cast<LONGLONG>(begin);
    if (SetFilePointerEx(file, where, nullptr, FILE_BEGIN) == FALSE) {
        return false;
    }
    while (count != 0) {
        DWORD written = 0;
        const auto next = static_cast<DWORD>((std::min)(count, std::uint64_t{sizeof(blanks)}));
        if (WriteFile(file, blanks, next, &written, nullptr) == FALSE || written == 0) {
            return false;
        }
        count -= written;
    }
    return true;
}

constexpr DWORD High(std::uint64_t number) noexcept {
    return static_cast<DWORD>(number >> 32U);
}

constexpr DWORD Low(std::uint64_t number) noexcept {
    return static_cast<DWORD>(number);
}

}  // namespace

static_assert(kFileInUse == ERROR_SHARING_VIOLATION);

unsigned long TraceFile::Open(const wchar_t* path) noexcept {
    HANDLE const file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    m_handle = file;
    m_size = 0;
    m_allocated = 0;
    return 0;
}

bool TraceFile::Append(std::string_view first, std::string_view second) noexcept {
    const std::uint64_t size = first.size() + second.size();
    if ((m_view == nullptr || m_size + size > m_allocated) && !Grow()) {
        return false;
    }
    char* const to = m_view + (m_size - m_viewBegin);
    second.copy(to + first.copy(to, first.size()), second.size());
    m_size += size;  // last: a thread that is stopped in the middle of a line leaves room for the next one
    return true;
}

// The view begins at or before the end of the text, and has more room behind it than any line needs.
bool TraceFile::Grow() noexcept {
    Unmap();
    const std::uint64_t begin = m_size / kGranularity * kGranularity;
    const std::uint64_t end = begin + kPiece;
    if (m_allocated < end && !WriteBlanks(m_handle, m_allocated, end - m_allocated)) {
        return false;
    }
    m_allocated = end;
    HANDLE const mapping = CreateFileMappingW(m_handle, nullptr, PAGE_READWRITE, High(end), Low(end), nullptr);
    if (mapping == nullptr) {
        return false;
    }
    m_view = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_WRITE, High(begin), Low(begin), kPiece));
    m_viewBegin = begin;
    CloseHandle(mapping);
    return m_view != nullptr;
}

void TraceFile::Unmap() noexcept {
    if (m_view != nullptr) {
        UnmapViewOfFile(m_view);
        m_view = nullptr;
    }
}

void TraceFile::Trim() noexcept {
    if (m_handle == nullptr) {
        return;
    }
    Unmap();
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(m_size);
    if (SetFilePointerEx(m_handle, end, nullptr, FILE_BEGIN) != FALSE && SetEndOfFile(m_handle) != FALSE) {
        m_allocated = m_size;
    }
}

void TraceFile::Close() noexcept {
    if (m_handle != nullptr) {
        Trim();
        CloseHandle(m_handle);
        m_handle = nullptr;
    }
}

ProgramName::ProgramName() noexcept {
    wchar_t path[1024];
    const DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    std::wstring_view name(path, length < std::size(path) ? length : 0);
    name.remove_prefix(name.find_last_of(L"\\/") + 1);  // none is npos, which wraps to 0
    if (name.size() < text.size()) {
        name.copy(text.data(), name.size());
    }
}

unsigned long MoveTraceFile(const wchar_t* from, const wchar_t* to) noexcept {
    return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING) != FALSE ? 0 : GetLastError();
}

}  // namespace Orvane::Reports
