// The places that take whole lines: standard error and the log file.
//
// Errors: none; never throws, unless stated.
#pragma once

#include <string_view>

#include "zarvo_orvane_logging/growing_text.h"

namespace Orvane::Reports {

// Writes the line in one piece and in UTF-8. A process without standard error has nowhere to show it.
void WriteToStandardError(std::wstring_view line) noexcept;

// A file that lines are appended to, by this process and by others at the same time.
// Threads: one writer at a time in this process.
class LineFile {
  public:
    constexpr LineFile() = default;

    // Errors: std::system_error if the file cannot be opened.
    explicit LineFile(const wchar_t* path);

    [[nodiscard]] bool IsOpen() const noexcept { return m_handle != nullptr; }

    // Appends the line with one write. Returns false if the file did not take it.
    bool Append(std::wstring_view line) const noexcept;

    void Close() noexcept;

  private:
    void* m_handle = nullptr;
};

}  // namespace Orvane::Reports
