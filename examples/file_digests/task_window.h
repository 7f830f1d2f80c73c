// Runs jobs as named tasks, a bounded number of them at a time, and hands out how each ended, first come first served.
//
// The bound is what keeps many thousands of jobs small: a pool grows with the tasks it is given, and dedicated threads
// are as many as the tasks.
//
// Threads: the members belong to one thread, which must not be one of the tasks.
// Cancellation: CancelAll() reaches the jobs; no member is a cancellation point.
// Errors: what launching a task throws, std::bad_alloc.
// Lifetime: the destructor cancels what is in hand and waits for it, so jobs may refer to what outlives this object.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/task.h"

namespace FileDigests {

class TaskWindow {
  public:
    // Starts a task: GlobalThreadPool::Queue or ::LaunchInNewThread.
    using Launch = void (*)(const Orvane::Internal::Task& task);

    struct Ended {
        std::size_t id;
        std::exception_ptr error;  // empty for a normal end; CancelledException for a cancelled one
    };

    TaskWindow(Launch launch, std::size_t limit);
    ~TaskWindow();
    TaskWindow(const TaskWindow&) = delete;
    TaskWindow& operator=(const TaskWindow&) = delete;

    bool IsEmpty() const { return m_inHand.empty(); }
    bool IsFull() const { return m_inHand.size() >= m_limit; }

    // `id` is the caller's own. A job may throw FileError, std::bad_alloc (it arrives as a FileError) and what a
    // cancellation point throws; anything else ends the process.
    void Start(std::size_t id, const std::wstring& name, std::function<void()> job);

    // Waits for a task to end, if there is one. Empty when the time is up.
    std::optional<Ended> WaitForOne(std::chrono::milliseconds limit);

    // What is in hand ends as soon as it comes to a cancellation point.
    void CancelAll();

  private:
    class EndNotice;

    struct InHand {
        Orvane::Internal::Task task;
        std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    };

    std::optional<std::size_t> NextToEnd(std::chrono::milliseconds limit);

    const Launch m_launch;
    const std::size_t m_limit;
    std::map<std::size_t, InHand> m_inHand;
    bool m_cancelled = false;

    std::mutex m_mutex;
    std::condition_variable m_jobEnded;
    std::vector<std::size_t> m_ended;  // guarded by m_mutex; tasks whose job has returned or thrown
};

}  // namespace FileDigests
