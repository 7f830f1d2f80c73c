// What the program tells a person on its standard error: messages, and on a console a status line below them.
//
// Threads: every member may be called from any thread.
// Errors: none. On purpose: if standard error cannot be written, the work goes on.
#pragma once

#include <cstddef>
#include <mutex>
#include <string_view>

#include "examples/file_digests/output.h"

namespace FileDigests {

class Messages {
  public:
    Messages();

    // One line, with the program's name in front.
    void Say(std::string_view message);

    // Whether anybody would see a status line.
    bool HasStatus() const { return m_output.IsConsole(); }

    // The room for it.
    int Columns() const;

    // Replaces the status line; empty takes it away.
    void ShowStatus(std::string_view status);

  private:
    void Draw(std::string_view status);
    void Write(std::string_view text);

    std::mutex m_mutex;
    Output m_output;  // written under m_mutex
    std::size_t m_statusLength = 0;  // guarded by m_mutex
};

}  // namespace FileDigests
