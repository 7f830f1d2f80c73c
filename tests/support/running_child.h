// What RunChild() needs of the platform.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Zarvo::Test {

// A file in the temporary folder that disappears with the object.
class TemporaryFile {
  public:
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Path() const { return m_path; }
    std::string Text() const;

  private:
    std::string m_path;  // UTF-8
};

// A process, as the platform names it.
using ChildProcess = std::intptr_t;

// Starts a program beside this one, which writes to the two files.
ChildProcess StartChild(const std::string& program, const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment, const TemporaryFile& output,
                        const TemporaryFile& error);

// Returns its exit code. Ends it if it has not ended by then.
std::uint32_t WaitForChild(const std::string& program, ChildProcess process, std::chrono::milliseconds limit);

[[noreturn]] void FailChild(const std::string& program, const char* what);

}  // namespace Zarvo::Test
