#include "examples/file_digests/root_folder.h"

#include "examples/file_digests/file_error.h"

namespace FileDigests {

namespace {

// On purpose all: a file that others read, write or rename meanwhile is no reason to fail.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::wstring FullPath(const std::wstring& folder) {
    const DWORD size = GetFullPathNameW(folder.c_str(), 0, nullptr, nullptr);
    std::wstring path(size, L'\0');
    const DWORD length = GetFullPathNameW(folder.c_str(), size, path.data(), nullptr);
    if (length == 0 || length >= size) {
        throw FileError("find");
    }
    path.resize(length);
    return path;
}

// The form that the system takes as it is: paths of up to 32,767 characters, names such as "nul" or "dot."
std::wstring VerbatimPath(const std::wstring& folder) {
    std::wstring path = FullPath(folder);
    if (path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\")) {
        // as the caller wants it
    } else if (path.starts_with(L"\\\\")) {
        path.replace(0, 2, L"\\\\?\\UNC\\");
    } else {
        path.insert(0, L"\\\\?\\");
    }
    return path;
}

void RequireFolder(const Handle& handle) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(handle.Get(), &information)) {
        throw FileError("open");
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        throw FileError("open as a folder", ERROR_DIRECTORY);
    }
}

}  // namespace

RootFolder::RootFolder(const std::wstring& folder)
    : m_path(VerbatimPath(folder)), m_handle(OpenFolder(Entry())) {
    RequireFolder(m_handle);
}

Handle RootFolder::OpenFile(const Entry& file) const {
    Handle handle = Open(file, GENERIC_READ, FILE_FLAG_OVERLAPPED | FILE_FLAG_SEQUENTIAL_SCAN);
    if (GetFileType(handle.Get()) != FILE_TYPE_DISK) {
        throw FileError("read a device or a pipe", ERROR_NOT_SUPPORTED);
    }
    return handle;
}

Handle RootFolder::OpenFolder(const Entry& folder) const {
    return Open(folder, FILE_LIST_DIRECTORY, FILE_FLAG_BACKUP_SEMANTICS);
}

Handle RootFolder::Open(const Entry& entry, DWORD access, DWORD flags) const {
    Handle handle;
    if (entry.hasPath) {
        const bool isBelow = !entry.path.empty() && !m_path.ends_with(L'\\');
        const std::wstring path = m_path + (isBelow ? L"\\" : L"") + entry.path;
        handle = Handle(CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    } else {
        FILE_ID_DESCRIPTOR descriptor{};
        descriptor.dwSize = sizeof(descriptor);
        descriptor.Type = FileIdType;
        descriptor.FileId.QuadPart = entry.id;
        handle = Handle(OpenFileById(m_handle.Get(), &descriptor, access, kShareAll, nullptr, flags));
    }
    if (!handle.IsOpen()) {
        throw FileError("open");
    }
    return handle;
}

}  // namespace FileDigests
