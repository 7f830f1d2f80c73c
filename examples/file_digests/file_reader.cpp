#include "examples/file_digests/file_reader.h"

#include <algorithm>
#include <utility>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "examples/file_digests/file_error.h"

namespace FileDigests {

namespace {

// In bytes. A block takes a few milliseconds to digest, which is how long a running task takes to hear of its
// cancellation.
constexpr std::uint64_t kLargestBlock = std::uint64_t{1} << 20;
constexpr std::uint64_t kSmallestBlock = std::uint64_t{1} << 14;

}  // namespace

FileReader::FileReader(Handle file, std::uint64_t expectedSize)
    : m_file(std::move(file)),
      m_blockSize(static_cast<DWORD>(std::clamp(expectedSize, kSmallestBlock, kLargestBlock))),
      m_block(std::make_unique_for_overwrite<std::byte[]>(m_blockSize)) {}

std::span<const std::byte> FileReader::Next() {
    Orvane::CancellationPoint();
    OVERLAPPED request{};
    request.Offset = static_cast<DWORD>(m_offset);
    request.OffsetHigh = static_cast<DWORD>(m_offset >> 32);
    if (!Start(request)) {
        return {};
    }
    Await(request);
    DWORD count = 0;
    if (!GetOverlappedResult(m_file.Get(), &request, &count, FALSE) && GetLastError() != ERROR_HANDLE_EOF) {
        throw FileError("read");
    }
    m_offset += count;
    return {m_block.get(), count};
}

// Returns false at the end of the file.
bool FileReader::Start(OVERLAPPED& request) {
    if (ReadFile(m_file.Get(), m_block.get(), m_blockSize, nullptr, &request)) {
        return true;
    }
    switch (GetLastError()) {
        case ERROR_IO_PENDING: return true;
        case ERROR_HANDLE_EOF: return false;
        default: throw FileError("read");
    }
}

void FileReader::Await(OVERLAPPED& request) {
    try {
        while (!HasOverlappedIoCompleted(&request)) {
            if (Orvane::CancellableWaitForSingleObject(m_file.Get(), INFINITE) == WAIT_FAILED) {
                throw FileError("wait for a read");
            }
        }
    } catch (...) {
        // The request and the block belong to the system until it has let go of them.
        DWORD count = 0;
        CancelIoEx(m_file.Get(), &request);
        GetOverlappedResult(m_file.Get(), &request, &count, TRUE);
        throw;
    }
}

}  // namespace FileDigests
