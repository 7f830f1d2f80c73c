// What the templates of this room call: a job without the type of its result. Not for callers.
//
// Threads, cancellation, errors: as job.h says for the operation that calls it.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <stop_token>
#include <string>

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/job_body.h"

namespace Orvane::Internal {

class GroupCore;
class JobState;

class ORVANE_CONCURRENCY_API JobRef {
  public:
    JobRef() noexcept;
    JobRef(const JobRef&) noexcept;
    JobRef(JobRef&&) noexcept;
    JobRef& operator=(const JobRef&) noexcept;
    JobRef& operator=(JobRef&&) noexcept;
    ~JobRef();

    // A job that owns storage for a body of the type, and is to be started.
    static JobRef Make(const wchar_t* name, const JobBodyType& type);

    void* Body() const noexcept;
    void MarkBuilt() const noexcept;

    // Start it, once. If one throws, the callable is gone.
    void StartOnPool(const std::stop_token& token) const;
    void StartInNewThread(const std::stop_token& token) const;
    void StartUnowned() const;

    explicit operator bool() const noexcept { return m_state != nullptr; }

    void Wait() const;
    bool WaitFor(std::chrono::nanoseconds timeout) const;
    void Cancel() const;
    void CancelAfter(std::chrono::nanoseconds limit) const;
    void CancelWhen(HANDLE handle) const;
    bool IsReady() const noexcept;
    std::wstring GetName() const;
    HANDLE EndEvent() const;
    CancelReason GetCancelReason() const;

    // When it has ended: throws what the job ended with, unless it is Done.
    void RethrowFailure() const;

    // After that: where the result stands.
    void* Result() const noexcept;

    // The outcome has been read.
    void Release() const noexcept;

    // Asks and waits, unless it is called inside the job's own run. Leaves an empty reference.
    void Drop() noexcept;

    // Goes on without a reader. Leaves an empty reference.
    void LetGo() noexcept;

    // Errors: std::logic_error for an empty reference.
    JobState& Get() const;

    const std::shared_ptr<JobState>& State() const noexcept { return m_state; }

    explicit JobRef(std::shared_ptr<JobState> state) noexcept;

  private:
    std::shared_ptr<JobState> m_state;
};

inline constexpr std::size_t kNoJob = static_cast<std::size_t>(-1);

// Until all have ended, or one has not ended as Done, or the time is up. Returns false in the last case.
ORVANE_CONCURRENCY_API bool WaitForAll(const JobRef* const* jobs, std::size_t count, std::chrono::nanoseconds timeout);

// The one whose failure or cancellation came first, of those that have ended; kNoJob if there is none.
ORVANE_CONCURRENCY_API std::size_t FirstNotDone(const JobRef* const* jobs, std::size_t count);

// Until one has ended. Returns the index of the first in time, kNoJob if the time is up. On a tie the lowest.
ORVANE_CONCURRENCY_API std::size_t WaitForAny(const JobRef* const* jobs, std::size_t count,
                                              std::chrono::nanoseconds timeout);

// Whether the calling thread lives in virtual time (testing.h).
ORVANE_CONCURRENCY_API bool IsInVirtualTime() noexcept;

// Whether the process is being ended: other threads are gone, and nothing can be waited for.
ORVANE_CONCURRENCY_API bool IsProcessEnding() noexcept;

}  // namespace Orvane::Internal
