#include "examples/file_digests/digest_run.h"

#include <algorithm>
#include <exception>
#include <new>
#include <string>
#include <thread>

#include "concurrency/jobs/job_group.h"
#include "examples/file_digests/checksum_line.h"
#include "examples/file_digests/file_reader.h"
#include "examples/file_digests/status_line.h"

namespace FileDigests {

namespace {

// As many as keep the processors busy while some wait for a disk.
std::size_t FilesInHand() {
    return std::thread::hardware_concurrency() + 2;
}

Progress::Amount Total(const std::vector<FoundFile>& files) {
    Progress::Amount total;
    total.files = files.size();
    for (const FoundFile& file : files) {
        total.bytes += file.size;
    }
    return total;
}

// In the log a name is short: the last part of the path tells most.
std::wstring JobName(const FoundFile& file) {
    return file.path.substr(file.path.rfind(L'\\') + 1);
}

}  // namespace

DigestRun::DigestRun(const RootFolder& root, const std::vector<FoundFile>& files, Messages& messages)
    : m_root(root),
      m_files(files),
      m_messages(messages),
      m_digests(files.size()),
      m_progress(Total(files)),
      m_startedAt(GetTickCount64()) {}

void DigestRun::Run(Threads threads, const std::stop_token& stop, std::optional<std::chrono::milliseconds> limit) {
    const StatusLine status(m_messages, [this](int columns) { return ProgressLine(columns); });
    Orvane::JobGroup group(L"Digests", FilesInHand());
    const std::stop_callback onStop(stop, [&group] { group.Cancel(); });
    if (limit) {
        group.CancelAfter(*limit);
    }
    std::size_t next = 0;
    const auto startNext = [&] {
        const std::wstring name = JobName(m_files[next]);
        const auto work = [this, next] { TryDigest(next); };
        if (threads == Threads::kPool) {
            group.Run(name.c_str(), work);
        } else {
            group.RunInNewThread(name.c_str(), work);
        }
        ++next;
    };
    // The group bounds its jobs on the pool. Threads of their own begin at once, so here each end starts the next one.
    const std::size_t first = threads == Threads::kPool ? m_files.size() : FilesInHand();
    while (next < (std::min)(first, m_files.size())) {
        startNext();
    }
    for (const Orvane::EndedJob& ended : group) {
        if (ended.error) {
            std::rethrow_exception(ended.error);
        }
        if (next < m_files.size()) {
            startNext();
        }
    }
    m_cancelled = group.Counts().cancelled;
}

// On purpose lets no FileError out: the first failure of a job ends the others of its group.
void DigestRun::TryDigest(std::size_t index) {
    const auto fail = [&](const FileError& error) {
        ++m_failed;
        m_messages.Say(ShownName(m_files[index].name) + ": " + error.Message());
    };
    try {
        m_digests[index] = DigestOf(m_files[index]);
        ++m_done;
    } catch (const FileError& error) {
        fail(error);
    } catch (const std::bad_alloc&) {
        fail(FileError("get memory", ERROR_NOT_ENOUGH_MEMORY));
    }
}

Digest DigestRun::DigestOf(const FoundFile& file) {
    FileReader reader(m_root.OpenFile(file), file.size);
    Sha256 hash(m_algorithm);
    for (auto block = reader.Next(); !block.empty(); block = reader.Next()) {
        hash.Add(block);
        m_bytesRead += block.size();
    }
    return hash.Finish();
}

std::string DigestRun::ProgressLine(int columns) {
    const double seconds = static_cast<double>(GetTickCount64() - m_startedAt) / 1000;
    m_progress.Update({m_done + m_failed, m_bytesRead}, seconds);
    return m_progress.Line(columns);
}

}  // namespace FileDigests
