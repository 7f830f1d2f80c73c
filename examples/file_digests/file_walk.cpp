#include "examples/file_digests/file_walk.h"

#include <algorithm>
#include <utility>

#include "concurrency/cancellation/current_task.h"
#include "examples/file_digests/utf8.h"

namespace FileDigests {

namespace {

// Where these stand in a name, the name cannot be part of a path. Windows' own file systems have no such names, other
// systems' have. U+FFFD stands for bytes that could not be read as text, and so for more than one name.
constexpr std::wstring_view kNotInPaths = L"\\/\"*<>?|\xFFFD";

bool CanBeInPath(std::wstring_view name) {
    return std::none_of(name.begin(), name.end(), [](wchar_t character) {
        return character < L' ' || kNotInPaths.find(character) != std::wstring_view::npos;
    });
}

Entry Below(const Entry& folder, std::wstring_view name, std::int64_t id) {
    Entry entry{folder.path, folder.name, id, folder.hasPath && CanBeInPath(name)};
    if (!entry.path.empty()) {
        entry.path += L'\\';
        entry.name += '/';
    }
    entry.path += name;
    entry.name += ToUtf8(name);
    return entry;
}

class Walk {
  public:
    Walk(const RootFolder& root, const std::vector<std::wstring_view>& leftOut, std::atomic<std::size_t>& found)
        : m_root(root), m_leftOut(leftOut), m_found(found) {}

    FileList Run() {
        while (!m_folders.empty()) {
            const Entry folder = std::move(m_folders.back());
            m_folders.pop_back();
            try {
                List(folder);
            } catch (const FileError& error) {
                m_list.unreadable.push_back({folder.name.empty() ? "." : folder.name, error});
            }
        }
        std::sort(m_list.files.begin(), m_list.files.end(),
                  [](const FoundFile& left, const FoundFile& right) { return left.name < right.name; });
        return std::move(m_list);
    }

  private:
    void List(const Entry& folder) {
        const Handle handle = m_root.OpenFolder(folder);
        while (FillBuffer(handle)) {
            Orvane::CancellationPoint();
            const auto* bytes = reinterpret_cast<const std::byte*>(m_buffer.data());
            for (DWORD step = 1; step != 0; bytes += step) {
                const auto& information = *reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(bytes);
                Add(folder, information);
                step = information.NextEntryOffset;
            }
        }
    }

    bool FillBuffer(const Handle& folder) {
        const auto size = static_cast<DWORD>(m_buffer.size() * sizeof(m_buffer[0]));
        if (GetFileInformationByHandleEx(folder.Get(), FileIdBothDirectoryInfo, m_buffer.data(), size)) {
            return true;
        }
        if (GetLastError() == ERROR_NO_MORE_FILES) {
            return false;
        }
        throw FileError("list the folder");
    }

    void Add(const Entry& folder, const FILE_ID_BOTH_DIR_INFO& information) {
        const std::wstring_view name(information.FileName, information.FileNameLength / sizeof(wchar_t));
        if (name == L"." || name == L"..") {
            return;
        }
        const DWORD attributes = information.FileAttributes;
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            const auto size = static_cast<std::uint64_t>(information.EndOfFile.QuadPart);
            m_list.files.push_back({Below(folder, name, information.FileId.QuadPart), size});
            ++m_found;
        } else if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            ++m_list.linksLeftOut;
        } else if (!folder.path.empty() || std::find(m_leftOut.begin(), m_leftOut.end(), name) == m_leftOut.end()) {
            m_folders.push_back(Below(folder, name, information.FileId.QuadPart));
        }
    }

    const RootFolder& m_root;
    const std::vector<std::wstring_view>& m_leftOut;
    std::atomic<std::size_t>& m_found;
    FileList m_list;
    std::vector<Entry> m_folders{Entry()};  // still to be listed; at first the root
    std::vector<std::uint64_t> m_buffer = std::vector<std::uint64_t>(8192);  // aligned as the system's records are
};

}  // namespace

FileList FindFiles(const RootFolder& root, const std::vector<std::wstring_view>& leftOut,
                   std::atomic<std::size_t>& found) {
    return Walk(root, leftOut, found).Run();
}

}  // namespace FileDigests
