// What went wrong with one file or folder: the failed action and the system's error.
#pragma once

#include <windows.h>

#include <exception>
#include <string>

namespace FileDigests {

class FileError : public std::exception {
  public:
    // `action` completes "cannot ..." and must be a literal.
    FileError(const char* action, DWORD error) : m_action(action), m_error(error) {}

    // For Win32's last error.
    explicit FileError(const char* action) : FileError(action, GetLastError()) {}

    DWORD Error() const { return m_error; }

    // One line in UTF-8: "cannot open: The process cannot access ... (error 32)".
    std::string Message() const;

    const char* what() const noexcept override { return m_action; }

  private:
    const char* m_action;
    DWORD m_error;
};

}  // namespace FileDigests
