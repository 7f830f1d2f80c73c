// The folder that the program was given, and the way to everything below it.
//
// Threads: any, at the same time.
// Errors: FileError.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "examples/file_digests/handle.h"

namespace FileDigests {

// A file or folder below the root; the root itself if it is empty.
struct Entry {
    std::wstring path;  // below the root, with backslashes
    std::string name;   // the same in UTF-8, with forward slashes
    std::int64_t id = 0;

    // Whether the path leads there. Some file systems list names that no path can hold, since a character in them
    // means something else in a path or stands for one that has no place in UTF-16.
    bool hasPath = true;
};

class RootFolder {
  public:
    // Errors: also when it is no folder.
    explicit RootFolder(const std::wstring& folder);

    // For FileReader. Errors: also when it is a device or a pipe.
    Handle OpenFile(const Entry& file) const;

    Handle OpenFolder(const Entry& folder) const;

  private:
    Handle Open(const Entry& entry, DWORD access, DWORD flags) const;

    std::wstring m_path;  // in the form that is not limited to 260 characters
    Handle m_handle;
};

}  // namespace FileDigests
