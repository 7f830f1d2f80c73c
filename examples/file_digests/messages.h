// What the program tells a person on its standard error: messages, and on a console a status line below them.
//
// Threads: one.
// Errors: none. On purpose: if standard error cannot be written, the work goes on.
#pragma once

#include <cstdint>
#include <string_view>

#include "examples/file_digests/output.h"

namespace FileDigests {

class Messages {
  public:
    Messages();
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    // One line, with the program's name in front.
    void Say(std::string_view message);

    // Whether it is time to draw the status line again. Never when nobody would see it.
    bool IsStatusDue() const;

    // The room for the status line.
    int Columns() const;

    // Replaces the status line; empty takes it away.
    void ShowStatus(std::string_view status);

  private:
    void Write(std::string_view text);

    Output m_output;
    std::size_t m_statusLength = 0;
    std::uint64_t m_drawnAt = 0;  // in ms of the system's running time
};

}  // namespace FileDigests
