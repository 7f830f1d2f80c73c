// A standard stream of the process, written without translation.
//
// Threads: one.
// Errors: FileError.
#pragma once

#include <windows.h>

#include <string_view>

namespace FileDigests {

class Output {
  public:
    // STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
    explicit Output(DWORD stream);

    bool IsConsole() const { return m_isConsole; }

    // The width of the console, 0 if it is none.
    int Columns() const;

    // UTF-8; a console gets it as the UTF-16 it wants, everything else gets the bytes.
    void Write(std::string_view text);

  private:
    void WriteToConsole(std::string_view text);
    void WriteBytes(std::string_view text);

    HANDLE m_handle;
    bool m_isConsole;
};

}  // namespace FileDigests
