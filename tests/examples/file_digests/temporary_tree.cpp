#include "tests/examples/file_digests/temporary_tree.h"

#include <winioctl.h>

#include <stdexcept>

#include "examples/file_digests/utf8.h"

namespace Zarvo::Test {

using FileDigests::Handle;

namespace {

void Require(bool success, const char* what) {
    if (!success) {
        throw std::runtime_error(std::string("TemporaryTree: ") + what + ", error " + std::to_string(GetLastError()));
    }
}

void RemoveAll(const std::wstring& folder) {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &data);
    if (search == INVALID_HANDLE_VALUE) {
        return;
    }
    do {
        const std::wstring_view name = data.cFileName;
        const std::wstring path = folder + L"\\" + data.cFileName;
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            DeleteFileW(path.c_str());
        } else if (name != L"." && name != L"..") {
            RemoveAll(path);
        }
    } while (FindNextFileW(search, &data));
    FindClose(search);
    RemoveDirectoryW(folder.c_str());
}

}  // namespace

TemporaryTree::TemporaryTree() {
    wchar_t folder[MAX_PATH + 1];
    Require(GetTempPathW(MAX_PATH + 1, folder) != 0, "no temporary folder");
    m_path = std::wstring(L"\\\\?\\") + folder + L"file_digests_test_" + std::to_wstring(GetCurrentProcessId());
    RemoveAll(m_path);
    Require(CreateDirectoryW(m_path.c_str(), nullptr), "cannot make the folder");
}

TemporaryTree::~TemporaryTree() {
    RemoveAll(m_path);
}

std::string TemporaryTree::Path() const {
    return FileDigests::ToUtf8(m_path.substr(4));
}

std::wstring TemporaryTree::Path(std::wstring_view below) const {
    std::wstring path = m_path + L"\\";
    path += below;
    return path;
}

void TemporaryTree::Write(std::wstring_view path, std::string_view content) const {
    const Handle file = Create(path);
    DWORD count = 0;
    Require(WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &count, nullptr), "cannot write");
}

void TemporaryTree::MakeFolder(std::wstring_view path) const {
    for (std::size_t end = 0; end != std::wstring_view::npos;) {
        end = path.find(L'\\', end + 1);
        CreateDirectoryW(Path(path.substr(0, end)).c_str(), nullptr);
    }
}

void TemporaryTree::WriteZeros(std::wstring_view path, std::uint64_t size) const {
    const Handle file = Create(path);
    DWORD count = 0;
    // Where it fails, files take no room before something is written.
    DeviceIoControl(file.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &count, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size);
    Require(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()), "cannot make it long");
}

Handle TemporaryTree::Lock(std::wstring_view path) const {
    Handle file(CreateFileW(Path(path).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    Require(file.IsOpen(), "cannot lock");
    return file;
}

Handle TemporaryTree::Create(std::wstring_view path) const {
    if (const std::size_t folder = path.rfind(L'\\'); folder != std::wstring_view::npos) {
        MakeFolder(path.substr(0, folder));
    }
    Handle file(CreateFileW(Path(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    Require(file.IsOpen(), "cannot make the file");
    return file;
}

}  // namespace Zarvo::Test
