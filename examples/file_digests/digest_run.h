// Digests a list of files: one named job for each, in one group.
//
// Threads: one; while Run() is under way, a status line on another shows how far it is.
// Cancellation: the stop token and the time limit cancel the group; Run() then returns what was done.
// Errors: what the library throws when it cannot start a job. A file that cannot be read is said and counted.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "examples/file_digests/file_walk.h"
#include "examples/file_digests/messages.h"
#include "examples/file_digests/options.h"
#include "examples/file_digests/progress.h"
#include "examples/file_digests/root_folder.h"
#include "examples/file_digests/sha256.h"

namespace FileDigests {

class DigestRun {
  public:
    // All of them must outlive the object.
    DigestRun(const RootFolder& root, const std::vector<FoundFile>& files, Messages& messages);

    void Run(Threads threads, const std::stop_token& stop, std::optional<std::chrono::milliseconds> limit);

    // One for each file; empty for a file that failed or was cancelled.
    const std::vector<std::optional<Digest>>& Digests() const { return m_digests; }

    std::size_t Done() const { return m_done; }
    std::size_t Failed() const { return m_failed; }
    std::size_t Cancelled() const { return m_cancelled; }
    std::uint64_t BytesRead() const { return m_bytesRead; }

  private:
    void TryDigest(std::size_t index);
    Digest DigestOf(const FoundFile& file);
    std::string ProgressLine(int columns);

    const RootFolder& m_root;
    const std::vector<FoundFile>& m_files;
    Messages& m_messages;

    const Sha256Algorithm m_algorithm;
    std::vector<std::optional<Digest>> m_digests;  // each written by its file's job
    std::atomic<std::uint64_t> m_bytesRead = 0;
    std::atomic<std::size_t> m_done = 0;
    std::atomic<std::size_t> m_failed = 0;
    std::size_t m_cancelled = 0;

    Progress m_progress;  // the status line's own
    const std::uint64_t m_startedAt;  // in ms of the system's running time
};

}  // namespace FileDigests
