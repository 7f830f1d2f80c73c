// A lock that is there before any constructor runs and after every destructor has.
#pragma once

namespace Orvane::Reports {

class ProcessCondition;

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
    friend class ProcessCondition;

    void* m_lock = nullptr;  // an SRWLOCK, which is one pointer, null when free
};

// A condition for it, as early and as late.
class ProcessCondition {
  public:
    constexpr ProcessCondition() = default;
    ProcessCondition(const ProcessCondition&) = delete;
    ProcessCondition& operator=(const ProcessCondition&) = delete;

    // Releases the lock, sleeps, and has it again. Wakes up without a reason, too; at once at the end of the process.
    void Sleep(ProcessLock& lock) noexcept;
    void WakeAll() noexcept;

  private:
    void* m_condition = nullptr;  // a CONDITION_VARIABLE
};

}  // namespace Orvane::Reports
