// Digests a list of files: one named task for each.
//
// Threads: one; while Run() is under way, a status line on another shows how far it is.
// Cancellation: the stop signal cancels every task; Run() then returns what was done.
// Errors: what the library throws when it cannot start a task. A file that cannot be read is said and counted.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "examples/file_digests/file_walk.h"
#include "examples/file_digests/messages.h"
#include "examples/file_digests/progress.h"
#include "examples/file_digests/root_folder.h"
#include "examples/file_digests/sha256.h"
#include "examples/file_digests/stop_signal.h"
#include "examples/file_digests/task_window.h"

namespace FileDigests {

class DigestRun {
  public:
    // All of them must outlive the object.
    DigestRun(const RootFolder& root, const std::vector<FoundFile>& files, const StopSignal& stop, Messages& messages);

    void Run(TaskWindow::Launch launch);

    // One for each file; empty for a file that failed or was cancelled.
    const std::vector<std::optional<Digest>>& Digests() const { return m_digests; }

    std::size_t Done() const { return m_done; }
    std::size_t Failed() const { return m_failed; }
    std::size_t Cancelled() const { return m_cancelled; }
    std::uint64_t BytesRead() const { return m_bytesRead; }

  private:
    void DigestFile(std::size_t index);
    void Settle(const TaskWindow::Ended& ended);
    std::string ProgressLine(int columns);

    const RootFolder& m_root;
    const std::vector<FoundFile>& m_files;
    const StopSignal& m_stop;
    Messages& m_messages;

    const Sha256Algorithm m_algorithm;
    std::vector<std::optional<Digest>> m_digests;  // each written by its file's task
    std::atomic<std::uint64_t> m_bytesRead = 0;
    std::atomic<std::size_t> m_done = 0;
    std::atomic<std::size_t> m_failed = 0;
    std::size_t m_cancelled = 0;

    Progress m_progress;  // the status line's own
    const std::uint64_t m_startedAt;  // in ms of the system's running time
};

}  // namespace FileDigests
