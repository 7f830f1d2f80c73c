#include "zarvo_orvane_logging/line_output.h"

#include <cstddef>
#include <string>
#include <system_error>

#include <windows.h>

#include "zarvo_orvane_logging/process_lock.h"

namespace Orvane::Reports {

namespace {

bool WriteWhole(HANDLE file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        DWORD written = 0;
        if (WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) == FALSE) {
            return false;
        }
        bytes.remove_prefix(written);
    }
    return true;
}

// Keeps other processes from writing to the file while it lives. Appending alone does not: not every system that runs
// this finds the end of the file and writes there in one step.
class FileTurn {
  public:
    explicit FileTurn(HANDLE file) noexcept : m_file(file) { m_held = Take(); }
    ~FileTurn() {
        if (m_held) {
            UnlockFileEx(m_file, 0, 1, 0, &m_place);
        }
    }
    FileTurn(const FileTurn&) = delete;
    FileTurn& operator=(const FileTurn&) = delete;

  private:
    // The offset of the locked byte, far beyond the end of any log: a byte with text in it would be locked for readers.
    static constexpr DWORD kPlaceHigh = 0x7FFFFFFF;

    // On purpose: goes on without the turn when it does not come. A process that is stopped in the middle of its turn,
    // or a thread that has died there, must not stop everybody else.
    bool Take() noexcept {
        constexpr ULONGLONG kPatience = 1000;  // milliseconds
        m_place.OffsetHigh = kPlaceHigh;
        const ULONGLONG begin = GetTickCount64();
        while (LockFileEx(m_file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &m_place) == FALSE) {
            const bool isTakenByAnother = GetLastError() == ERROR_LOCK_VIOLATION;  // else the file knows no locks
            if (!isTakenByAnother || IsProcessEnding() || GetTickCount64() - begin >= kPatience) {
                return false;
            }
            Sleep(1);  // 1 to 16 ms: so the clock decides, not the number of attempts
        }
        return true;
    }

    HANDLE m_file;
    OVERLAPPED m_place{};
    bool m_held;
};

std::string InUtf8(const std::wstring& text) {
    const auto length = static_cast<int>(text.size());
    std::string bytes(3 * text.size(), '\0');
    const int used = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), static_cast<int>(bytes.size()),
                                         nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(used));
    return bytes;
}

}  // namespace

void WriteToStandardError(std::string_view lines) noexcept {
    WriteWhole(GetStdHandle(STD_ERROR_HANDLE), lines);
}

LineFile::LineFile(const wchar_t* path) {
    // Only reading makes the handle good for locking, only appending keeps it from overwriting.
    HANDLE const file = CreateFileW(path, FILE_APPEND_DATA | FILE_READ_DATA | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const auto error = static_cast<int>(GetLastError());
        throw std::system_error(error, std::system_category(), "cannot open the log file \"" + InUtf8(path) + "\"");
    }
    m_handle = file;
}

bool LineFile::Append(std::string_view lines) const noexcept {
    const FileTurn turn(m_handle);
    return WriteWhole(m_handle, lines);
}

void LineFile::Close() noexcept {
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
        m_handle = nullptr;
    }
}

}  // namespace Orvane::Reports
