#include "tests/siblings/scratch_folder.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <system_error>

#include <windows.h>

namespace Zarvo::Test {

ScratchFolder::ScratchFolder() {
    static std::atomic<int> made{0};
    const std::wstring name =
        L"zarvo-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(made.fetch_add(1));
    m_path = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ReadWhole(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> ReadLines(const std::filesystem::path& file) {
    const std::string text = ReadWhole(file);
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start) + "<unfinished>");
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace Zarvo::Test
