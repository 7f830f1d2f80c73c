#include "zarvo_orvane_logging/line_batches.h"

#include <algorithm>

namespace Orvane::Reports {

void LineBatches::Write(Lock& lock, Output& output, std::string_view line) noexcept {
    if (IsProcessEnding()) {
        output.Write(line);  // the thread that was writing is gone, and what has gathered may be torn
        return;
    }
    if (line.size() > kBatchBytes) {
        WriteAlone(lock, output, line);
        return;
    }
    while (!TryGather(line)) {
        WriteOrSleep(lock, output);
    }
    const std::uint64_t number = m_number;
    while (m_written <= number) {
        WriteOrSleep(lock, output);
    }
}

void LineBatches::Drain(Lock& lock, Output& output) noexcept {
    while (!IsProcessEnding() && (m_isWriting || Gathering().size != 0)) {
        WriteOrSleep(lock, output);
    }
}

bool LineBatches::TryGather(std::string_view line) noexcept {
    Batch& batch = Gathering();
    if (line.size() > batch.bytes.size() - batch.size) {
        return false;
    }
    std::ranges::copy(line, batch.bytes.begin() + static_cast<std::ptrdiff_t>(batch.size));
    batch.size += line.size();
    return true;
}

// Behind the write under way alone: in a flood there are always lines that have gathered.
void LineBatches::WriteAlone(Lock& lock, Output& output, std::string_view line) noexcept {
    while (m_isWriting) {
        m_writeEnded.Sleep(*lock.mutex());
    }
    WriteWith(lock, output, line);
}

void LineBatches::WriteOrSleep(Lock& lock, Output& output) noexcept {
    if (m_isWriting) {
        m_writeEnded.Sleep(*lock.mutex());
        return;
    }
    Batch& batch = Gathering();
    ++m_number;  // from here on lines gather in the other batch, which is empty
    WriteWith(lock, output, {batch.bytes.data(), batch.size});
    batch.size = 0;
    m_written = m_number;
}

void LineBatches::WriteWith(Lock& lock, Output& output, std::string_view lines) noexcept {
    m_isWriting = true;
    lock.unlock();
    output.Write(lines);
    lock.lock();
    m_isWriting = false;
    m_writeEnded.WakeAll();
}

}  // namespace Orvane::Reports
