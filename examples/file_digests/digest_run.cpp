#include "examples/file_digests/digest_run.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "examples/file_digests/checksum_line.h"
#include "examples/file_digests/file_reader.h"
#include "examples/file_digests/status_line.h"

namespace FileDigests {

namespace {

// How often the stop signal is looked after.
constexpr std::chrono::milliseconds kTick{50};

// As many tasks as keep the processors busy while some wait for a disk. On a small machine that is, with the status
// line, well below the workers that a pool starts with; on a large one the pool adds the workers that it takes, and no
// more.
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

// A task's name is short: the last part of the path tells most.
std::wstring TaskName(const FoundFile& file) {
    return file.path.substr(file.path.rfind(L'\\') + 1);
}

}  // namespace

DigestRun::DigestRun(const RootFolder& root, const std::vector<FoundFile>& files, const StopSignal& stop,
                     Messages& messages)
    : m_root(root),
      m_files(files),
      m_stop(stop),
      m_messages(messages),
      m_digests(files.size()),
      m_progress(Total(files)),
      m_startedAt(GetTickCount64()) {}

void DigestRun::Run(TaskWindow::Launch launch) {
    const StatusLine status(m_messages, [this](int columns) { return ProgressLine(columns); });
    TaskWindow tasks(launch, FilesInHand());
    std::size_t next = 0;
    while (next < m_files.size() || !tasks.IsEmpty()) {
        if (m_stop.IsSet()) {
            tasks.CancelAll();
            m_cancelled += m_files.size() - next;
            next = m_files.size();
        }
        while (next < m_files.size() && !tasks.IsFull()) {
            tasks.Start(next, TaskName(m_files[next]), [this, next] { DigestFile(next); });
            ++next;
        }
        if (const auto ended = tasks.WaitForOne(kTick)) {
            Settle(*ended);
        }
    }
}

void DigestRun::DigestFile(std::size_t index) {
    const FoundFile& file = m_files[index];
    FileReader reader(m_root.OpenFile(file), file.size);
    Sha256 hash(m_algorithm);
    for (auto block = reader.Next(); !block.empty(); block = reader.Next()) {
        hash.Add(block);
        m_bytesRead += block.size();
    }
    m_digests[index] = hash.Finish();
}

void DigestRun::Settle(const TaskWindow::Ended& ended) {
    if (!ended.error) {
        ++m_done;
        return;
    }
    try {
        std::rethrow_exception(ended.error);
    } catch (const Orvane::CancelledException&) {
        ++m_cancelled;
    } catch (const FileError& error) {
        ++m_failed;
        m_messages.Say(ShownName(m_files[ended.id].name) + ": " + error.Message());
    }
}

std::string DigestRun::ProgressLine(int columns) {
    const double seconds = static_cast<double>(GetTickCount64() - m_startedAt) / 1000;
    m_progress.Update({m_done + m_failed, m_bytesRead}, seconds);
    return m_progress.Line(columns);
}

}  // namespace FileDigests
