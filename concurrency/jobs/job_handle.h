// What the handles of jobs have in common.
//
// Contract: that of job.h.
#pragma once

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "concurrency/base/win32.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/job_ref.h"
#include "concurrency/jobs/wait_time.h"

namespace Orvane {

// What can be done with a job whatever its result.
class JobHandle {
  public:
    // Returns when the job has ended, whatever its outcome.
    void Wait() const { m_job.Wait(); }

    // Return whether the job has ended in time. Zero or less looks and does not wait.
    template <typename Rep, typename Period>
    [[nodiscard]] bool WaitFor(const std::chrono::duration<Rep, Period>& timeout) const {
        return m_job.WaitFor(Internal::ToNanoseconds(timeout));
    }
    template <typename Clock, typename ClockDuration>
    [[nodiscard]] bool WaitUntil(const std::chrono::time_point<Clock, ClockDuration>& deadline) const {
        return Internal::WaitUntilTime(deadline,
                                       [this](std::chrono::nanoseconds slice) { return m_job.WaitFor(slice); });
    }

    // Asks the job to leave; nothing if it has ended. In the job's own run it only makes the request: the next cancellation
    // point throws.
    void Cancel() const { m_job.Cancel(); }

    // The same after `limit`, on the monotonic clock: at once for zero or less, never beyond the end of time. Of several
    // limits the earliest counts. Needs no worker of the pool.
    // Errors: std::bad_alloc; std::system_error if the thread of the limits cannot be started; no limit is set then.
    template <typename Rep, typename Period>
    void CancelAfter(const std::chrono::duration<Rep, Period>& limit) const {
        m_job.CancelAfter(Internal::ToNanoseconds(limit));
    }

    // The same when the handle is signalled: when a process ends, an event is set, a change is notified. At once if it is. Takes
    // one signal of an auto-reset event or a semaphore. The caller may close the handle. Of several handles each counts. Needs no
    // worker of the pool.
    // Errors: std::invalid_argument for a mutex; std::system_error if the handle cannot be waited for, or the platform refuses a
    // thread, an event or a handle; std::bad_alloc. The handle is not watched then.
    void CancelWhen(HANDLE handle) const { m_job.CancelWhen(handle); }

    // Whether Get() would not block. False without a job.
    bool IsReady() const noexcept { return m_job.IsReady(); }

    // In full; log records keep its first 29 characters. Empty without a job.
    std::wstring GetName() const { return m_job.GetName(); }

    // A manual-reset event that is set when the job has ended: for WaitForMultipleObjects beside other handles. Made by the
    // first call. It belongs to the job: it is valid for as long as this handle has the job.
    // Errors: std::system_error if the platform has none.
    HANDLE EndEvent() const { return m_job.EndEvent(); }

    // Why the job was asked to leave first; None if it was not.
    CancelReason GetCancelReason() const { return m_job.GetCancelReason(); }

    // Not for callers.
    const Internal::JobRef& Ref() const noexcept { return m_job; }

  protected:
    // Not for callers.
    JobHandle() noexcept = default;
    explicit JobHandle(Internal::JobRef job) noexcept : m_job(std::move(job)) {}
    JobHandle(JobHandle&&) noexcept = default;
    JobHandle& operator=(JobHandle&&) noexcept = default;
    ~JobHandle() = default;
    Internal::JobRef m_job;
};

// A job whose result is a T: nothing, a value or a reference.
template <typename T>
class TypedJobHandle : public JobHandle {
  public:
    // Waits, then returns the result or throws what the job ended with: once. If the wait throws, the result is still there.
    T Get() {
        if (m_isTaken) {
            throw std::logic_error("the result of the job was taken already");
        }
        m_job.Wait();
        m_isTaken = true;
        const Releasing releasing{m_job};
        m_job.RethrowFailure();
        if constexpr (std::is_reference_v<T>) {
            return **static_cast<std::remove_reference_t<T>**>(m_job.Result());
        } else if constexpr (!std::is_void_v<T>) {
            return std::move(*static_cast<std::remove_const_t<T>*>(m_job.Result()));
        }
    }

  protected:
    // Not for callers.
    TypedJobHandle() noexcept = default;
    explicit TypedJobHandle(Internal::JobRef job) noexcept : JobHandle(std::move(job)) {}
    TypedJobHandle(TypedJobHandle&&) noexcept = default;
    TypedJobHandle& operator=(TypedJobHandle&&) noexcept = default;
    ~TypedJobHandle() = default;
    bool m_isTaken = false;

  private:
    struct Releasing {
        const Internal::JobRef& job;
        ~Releasing() { job.Release(); }
    };
};

}  // namespace Orvane
