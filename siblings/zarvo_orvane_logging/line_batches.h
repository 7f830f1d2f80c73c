// Lines that many threads write together.
//
// While one thread writes, the lines of the others gather. One of them then writes them all at once. So a slow file costs a
// thread about two writes, however many threads report. With one write for each line the threads would stand in line, and a
// pool whose workers all stand there grows.
//
// Locks: the owner's lock guards everything here. It is released around a write; `m_isWriting` keeps the others out then.
// Waits: a thread sleeps until a write ends, and looks again. Who ends a write says so to all, after it has changed what they
// look at under the lock. One of them becomes the next writer; which one does not matter.
// A thread that is killed leaves nothing of its own behind here: its line lies in the batch. The end of the thread that writes
// stops all others.
//
// Errors: none; never throws. Memory: none beyond the two batches.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "zarvo_orvane_logging/process_lock.h"

namespace Orvane::Reports {

class LineBatches {
  public:
    using Lock = std::unique_lock<ProcessLock>;

    // Writes whole lines, in one piece. No two threads are in it at a time, but at the end of the process.
    class Output {
      public:
        virtual void Write(std::string_view lines) noexcept = 0;

      protected:
        ~Output() = default;
    };

    constexpr LineBatches() = default;
    LineBatches(const LineBatches&) = delete;
    LineBatches& operator=(const LineBatches&) = delete;

    // Returns when the output has the line. A line that is longer than a batch is a write of its own.
    // Releases the lock meanwhile, and holds it again at the end.
    void Write(Lock& lock, Output& output, std::string_view line) noexcept;

    // Returns when no thread writes and no line is left: from then on, until the lock is released, the output may change.
    void Drain(Lock& lock, Output& output) noexcept;

    [[nodiscard]] std::size_t GatheredBytes() const noexcept { return Gathering().size; }

  private:
    static constexpr std::size_t kBatchBytes = std::size_t{16} * 1024;

    struct Batch {
        std::array<char, kBatchBytes> bytes;
        std::size_t size;
    };

    const Batch& Gathering() const noexcept { return m_batches[m_number % m_batches.size()]; }
    Batch& Gathering() noexcept { return m_batches[m_number % m_batches.size()]; }
    bool TryGather(std::string_view line) noexcept;
    void WriteAlone(Lock& lock, Output& output, std::string_view line) noexcept;
    void WriteOrSleep(Lock& lock, Output& output) noexcept;
    void WriteWith(Lock& lock, Output& output, std::string_view lines) noexcept;

    std::array<Batch, 2> m_batches{};  // one gathers, the other is written
    std::uint64_t m_number = 0;  // of the batch that gathers
    std::uint64_t m_written = 0;  // lower numbers are with the output; m_number unless a thread writes a batch
    bool m_isWriting = false;
    ProcessCondition m_writeEnded;
};

}  // namespace Orvane::Reports
