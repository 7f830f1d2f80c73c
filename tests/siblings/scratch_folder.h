// A folder of one test's own, gone with it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Zarvo::Test {

class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] std::filesystem::path File(const std::wstring& name) const { return m_path / name; }

  private:
    std::filesystem::path m_path;
};

std::string ReadWhole(const std::filesystem::path& file);

// The file's lines without their line feeds. A last line that lacks its line feed is marked with "<unfinished>".
std::vector<std::string> ReadLines(const std::filesystem::path& file);

}  // namespace Zarvo::Test
