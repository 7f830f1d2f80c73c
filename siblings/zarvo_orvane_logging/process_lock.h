// A lock that is there before any constructor runs and after every destructor has.
#pragma once

namespace Orvane::Reports {

// True once all threads but the caller's are gone, each stopped wherever it was.
bool IsProcessEnding() noexcept;

// Threads: not recursive. One of the threads that are stopped when the process ends may be inside the lock: the last
//     thread, which runs the destructors, goes in without asking.
class ProcessLock {
  public:
    constexpr ProcessLock() = default;
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;

  private:
    void* m_lock = nullptr;  // an SRWLOCK, which is one pointer, null when free
};

}  // namespace Orvane::Reports
