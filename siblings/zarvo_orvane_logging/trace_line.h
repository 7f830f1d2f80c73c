// One event of the trace as one line of the file, but for its time:
//
//     ,"ph":"b","pid":1184,"tid":2316,"cat":"pool","name":"Fetch 17","id":"0x7f3a10","args":{"result":"taken"}},
//
// The text is put together without memory from the heap. It is always a whole JSON object: texts that are too long are cut
// at a character, and arguments that find no room are left out.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "zarvo_orvane_logging/trace.h"

namespace Orvane::Reports {

class TraceLine {
  public:
    static constexpr std::size_t kTextRoom = 1000;  // bytes of one text, as it stands in the file

    // Of the calling thread.
    explicit TraceLine(const OrvaneTrace::Event& event) noexcept;

    // What the process or the calling thread is called: `what` is process_name or thread_name.
    TraceLine(const char* what, const wchar_t* name) noexcept;

    // With its comma and line feed.
    [[nodiscard]] std::string_view Text() const noexcept { return {m_text.data(), m_size}; }

  private:
    static constexpr std::size_t kCapacity = 4096;
    static constexpr std::size_t kKept = 64;  // for what ends the line

    void AddHead(OrvaneTrace::Phase phase, const char* category) noexcept;
    void AddArguments(const OrvaneTrace::Event& event) noexcept;
    void AddArgument(const OrvaneTrace::Argument& argument, bool isFirst) noexcept;
    void Close() noexcept;
    void Add(std::string_view text) noexcept;
    void AddNumber(long long number) noexcept;
    void AddId(unsigned long long id) noexcept;
    void AddText(const wchar_t* text) noexcept;
    void AddText(const char* utf8) noexcept;
    bool AddCodePoint(char32_t code, std::size_t end) noexcept;

    std::array<char, kCapacity> m_text;
    std::size_t m_size = 0;
};

}  // namespace Orvane::Reports
