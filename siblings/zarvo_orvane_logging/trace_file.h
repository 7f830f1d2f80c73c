// The file of the trace: text is copied into a part of it that is mapped. The system keeps what is there, whatever happens
// to the process.
//
// The file grows in pieces. Each is written as blanks before it is mapped: then the disk has room for it, and what has no text
// yet is white space to a reader.
//
// Threads: one at a time.
// Errors: none; never throws.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Orvane::Reports {

// What Open() returns if another process writes to the file.
inline constexpr unsigned long kFileInUse = 32;

class TraceFile {
  public:
    constexpr TraceFile() = default;
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    // Makes the file, in place of one that is there. Others may read it meanwhile, and not write. Returns the system's error,
    // 0 for none.
    [[nodiscard]] unsigned long Open(const wchar_t* path) noexcept;
    [[nodiscard]] bool IsOpen() const noexcept { return m_handle != nullptr; }

    // Returns false if the file takes no more.
    [[nodiscard]] bool Append(std::string_view first, std::string_view second) noexcept;
    [[nodiscard]] std::uint64_t Size() const noexcept { return m_size; }

    // Cuts off what has no text. The file may grow again.
    void Trim() noexcept;

    // Trims it, too.
    void Close() noexcept;

  private:
    bool Grow() noexcept;
    void Unmap() noexcept;

    void* m_handle = nullptr;
    char* m_view = nullptr;
    std::uint64_t m_viewBegin = 0;
    std::uint64_t m_size = 0;  // of the text
    std::uint64_t m_allocated = 0;  // with the blanks behind it
};

// What is at `from` is at `to` after that, in place of what was there. Returns the system's error, 0 for none.
unsigned long MoveTraceFile(const wchar_t* from, const wchar_t* to) noexcept;

// The program's file name without its folder; empty if it is very long.
struct ProgramName {
    ProgramName() noexcept;

    std::array<wchar_t, 512> text{};
};

}  // namespace Orvane::Reports
