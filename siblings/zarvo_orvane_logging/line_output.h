// The places that take whole lines: standard error and the log file.
//
// Errors: none; never throws, unless stated.
#pragma once

#include <string_view>

namespace Orvane::Reports {

// Writes the lines, which are UTF-8, in one piece. A process without standard error has nowhere to show them.
void WriteToStandardError(std::string_view lines) noexcept;

// A file that lines are appended to, by this process and by others at the same time.
// Threads: one writer at a time in this process.
class LineFile {
  public:
    constexpr LineFile() = default;

    // Errors: std::system_error if the file cannot be opened.
    explicit LineFile(const wchar_t* path);

    [[nodiscard]] bool IsOpen() const noexcept { return m_handle != nullptr; }

    // Appends the lines, which are UTF-8, with one write. Returns false if the file did not take them.
    bool Append(std::string_view lines) const noexcept;

    void Close() noexcept;

  private:
    void* m_handle = nullptr;
};

}  // namespace Orvane::Reports
