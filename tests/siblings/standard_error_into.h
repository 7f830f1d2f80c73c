// Sends this process's standard error into a file while it lives.
#pragma once

#include <filesystem>

#include <windows.h>

namespace Zarvo::Test {

class StandardErrorInto {
  public:
    explicit StandardErrorInto(const std::filesystem::path& file)
        : m_before(GetStdHandle(STD_ERROR_HANDLE)),
          m_file(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, 0,
                             nullptr)) {
        SetStdHandle(STD_ERROR_HANDLE, m_file);
    }
    ~StandardErrorInto() {
        SetStdHandle(STD_ERROR_HANDLE, m_before);
        CloseHandle(m_file);
    }
    StandardErrorInto(const StandardErrorInto&) = delete;
    StandardErrorInto& operator=(const StandardErrorInto&) = delete;

  private:
    HANDLE m_before;
    HANDLE m_file;
};

}  // namespace Zarvo::Test
