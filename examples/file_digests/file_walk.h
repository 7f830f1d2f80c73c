// Finds every file below a folder.
//
// Cancellation: a cancellation point for every few hundred entries.
// Errors: std::bad_alloc. A folder that cannot be listed is told in the result.
// Units: memory for each file: its path twice, and about 150 bytes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "examples/file_digests/file_error.h"
#include "examples/file_digests/root_folder.h"

namespace FileDigests {

struct FoundFile : Entry {
    std::uint64_t size = 0;  // in bytes, when it was listed
};

struct UnreadableFolder {
    std::string name;  // as Entry's; "." for the root
    FileError error;
};

struct FileList {
    std::vector<FoundFile> files;  // sorted by the bytes of their names
    std::vector<UnreadableFolder> unreadable;

    // Links to folders. On purpose not entered: they may lead in a circle or out of the tree. Links to files are read.
    std::size_t linksLeftOut = 0;
};

// `leftOut` are names of folders directly below the root. `found` counts the files meanwhile.
FileList FindFiles(const RootFolder& root, const std::vector<std::wstring_view>& leftOut,
                   std::atomic<std::size_t>& found);

}  // namespace FileDigests
