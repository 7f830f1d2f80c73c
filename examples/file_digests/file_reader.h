// Reads a file block by block, in constant memory.
//
// Threads: one. Beside the reader nobody may read from the handle.
// Cancellation: Next() is a cancellation point, also while the system keeps it waiting for the data: a read from a
//     disk or a share that does not answer is given up.
// Errors: FileError.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "examples/file_digests/handle.h"

namespace FileDigests {

class FileReader {
  public:
    // `file` must have been opened with FILE_FLAG_OVERLAPPED. `expectedSize` in bytes makes a small file's block small;
    // it may be wrong.
    FileReader(Handle file, std::uint64_t expectedSize);

    // The next bytes, valid until the next call; empty at the end of the file.
    std::span<const std::byte> Next();

  private:
    bool Start(OVERLAPPED& request);
    void Await(OVERLAPPED& request);

    Handle m_file;
    DWORD m_blockSize;
    std::unique_ptr<std::byte[]> m_block;
    std::uint64_t m_offset = 0;
};

}  // namespace FileDigests
