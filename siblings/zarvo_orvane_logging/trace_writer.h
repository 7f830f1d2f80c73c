// Puts the events of all threads into one file, in the order of their times.
//
// A line is put together by its thread, without a lock. Under the lock the writer reads the clock and copies the line: so the
// file is sorted, and the lock is held for some hundred nanoseconds. Two things take longer: the next piece of the file, and
// the next file. At the limit the file at PATH becomes PATH.1, in place of an older one, and a new one begins with the
// names of the process and its threads.
//
// Threads: any. The lock is the last one: nothing is taken under it.
// Errors: none; never throws.
// Lifetime: made at compile time and never destroyed.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zarvo_orvane_logging/process_lock.h"
#include "zarvo_orvane_logging/trace.h"
#include "zarvo_orvane_logging/trace_file.h"

namespace Orvane::Reports {

class TraceWriter {
  public:
    constexpr TraceWriter() = default;
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // Returns false if the trace is off, now and later. The first call reads the environment.
    [[nodiscard]] bool Write(const OrvaneTrace::Event& event) noexcept;

    // At the end of the module: cuts off what has no text.
    void Trim() noexcept;

  private:
    struct Paths {
        std::wstring current;
        std::wstring older;
    };

    void ReadEnvironmentOnce() noexcept;
    void Start();
    // These return false if the trace is off from now on. Put() does not look at the limit: a head fits into every file.
    bool Append(std::string_view line) noexcept;
    bool Put(std::string_view line) noexcept;
    bool WriteHead() noexcept;
    bool Rotate() noexcept;
    void KeepName(std::string_view line) noexcept;
    void Stop(unsigned long error) noexcept;

    static constexpr std::size_t kNamesRoom = 32768;

    std::atomic<bool> m_environmentRead = false;

    ProcessLock m_lock;  // protects the rest, and the order of the events
    TraceFile m_file;  // open while the trace is on
    const Paths* m_paths = nullptr;  // never destroyed
    std::uint64_t m_limit = 0;
    std::int64_t m_lastTime = 0;
    std::array<char, kNamesRoom> m_names{};  // lines that name threads, for the next file: as many as find room
    std::size_t m_namesSize = 0;
};

}  // namespace Orvane::Reports
