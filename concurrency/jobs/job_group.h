// Many jobs under one owner: bounded, cancelled together, and failing together.
//
//     Orvane::JobGroup group(L"Digests", 8);
//     for (const auto& file : files) {
//         group.Run(file.c_str(), Digest, file);
//     }
//     group.Wait();  // throws the first failure
//
// Exactly `bound` jobs run at a time; the next one begins when one has ended. The rest waits in the group, not in the pool:
// Run() never blocks, and other work of the process is not behind it. Each job keeps some hundred bytes until it has ended.
//
// The first failure in time asks all the others to leave, all at once. After a failure or a request the group is spent: jobs
// that are added then are asked at once, and never run.
//
// To drop the group asks all its jobs and waits for them, as Leave() does, and destroys what it keeps of them: after that a
// GroupJob reads its value, but no failure. Inside one of its own jobs it asks and does not wait. While the module of a static
// group is unloaded nothing can be waited for: if a job has not ended then, the process ends.
//
// Threads: any, but for construction and destruction. Wait() and the iteration may be used by several threads.
// Cancellation: the waits and the iteration are cancellation points of the calling thread's own run. The run that has made the
//     group owns it: a request for that run reaches all jobs.
// Errors: Wait() throws the first failure as its own type, to each caller the same object. It throws CancelledException if
//     jobs did not finish because the group was asked (TimeLimitException by its limit), and std::system_error
//     (resource_deadlock_would_occur) inside a job of the group, as does an iteration there that would wait. Run() throws Unexpected before the first initialisation and
//     from the last uninitialisation on, and std::bad_alloc. If no worker can be started for its jobs, the group fails with
//     that error. A first failure that was never thrown or read goes to the failure handler when the group goes.
// Memory: everything before Run() is visible to the job, and everything in the jobs after Wait(), or after the iteration has
//     returned the record of the job.
// Lifetime: callables and arguments as with Run() in job.h. A job that waits for another job of its own group gives its place
//     among the `bound` to another one meanwhile. One that waits for a job elsewhere that needs the group does not: do not.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_bound.h"
#include "concurrency/jobs/module_use.h"
#include "concurrency/scheduler/schedule.h"

namespace Orvane {

namespace Internal {
class GroupCore;
}  // namespace Internal

// A job that belongs to its group. To drop the handle changes nothing for the job; its result is destroyed at its end then. If
// the job fails, Get() and the group's Wait() throw the same object.
template <typename T>
class GroupJob : public TypedJobHandle<T> {
  public:
    // Without a job.
    GroupJob() noexcept = default;

    // Takes the job over. What becomes of the one before is said above.
    GroupJob(GroupJob&&) noexcept = default;
    GroupJob& operator=(GroupJob&& other) noexcept {
        GroupJob old(std::move(*this));
        TypedJobHandle<T>::operator=(std::move(other));
        return *this;
    }

    // The job goes on.
    ~GroupJob() { this->m_job.LetGo(); }

    // Not for callers.
    explicit GroupJob(Internal::JobRef job) noexcept : TypedJobHandle<T>(std::move(job)) {}
};

// Runs at most `bound` jobs at a time and owns them: to drop it asks all and waits until they have left.
class ORVANE_CONCURRENCY_API JobGroup {
  public:
    // A group without jobs. Errors: std::invalid_argument for a bound of 0, std::bad_alloc, std::system_error.
    explicit JobGroup(const wchar_t* name, std::size_t bound = DefaultBound());

    // Asks all jobs and waits until they have left.
    ~JobGroup();
    JobGroup(const JobGroup&) = delete;
    JobGroup& operator=(const JobGroup&) = delete;

    // Adds a job; it starts when it is its turn. Never blocks.
    template <typename F, typename... Arguments>
    auto Run(const wchar_t* name, F&& callable, Arguments&&... arguments)
        -> GroupJob<Internal::JobResult<F, Arguments...>> {
        auto job = Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...);
        Add(job);
        return GroupJob<Internal::JobResult<F, Arguments...>>(std::move(job));
    }

    // Runs the callable if a job is free to begin at once. Otherwise returns nothing, and neither callable nor arguments have
    // been touched.
    template <typename F, typename... Arguments>
    auto TryRun(const wchar_t* name, F&& callable, Arguments&&... arguments)
        -> std::optional<GroupJob<Internal::JobResult<F, Arguments...>>> {
        Reservation place(*this);
        if (!place.IsThere()) {
            return std::nullopt;
        }
        auto job = Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...);
        place.Use(job);
        return GroupJob<Internal::JobResult<F, Arguments...>>(std::move(job));
    }

    // On a thread of its own, at once and beside the bound. Errors: also std::system_error if the thread cannot be started.
    template <typename F, typename... Arguments>
    auto RunInNewThread(const wchar_t* name, F&& callable, Arguments&&... arguments)
        -> GroupJob<Internal::JobResult<F, Arguments...>> {
        auto job = Build(name, std::forward<F>(callable), std::forward<Arguments>(arguments)...);
        AddInNewThread(job);
        return GroupJob<Internal::JobResult<F, Arguments...>>(std::move(job));
    }

    // Runs the callable at a start or after a delay, and then after every interval; once for interval 0. Each run is a job of
    // the group, and the schedule counts as one that has not ended: a recurrent one until the group is asked, or until it
    // stops. A run that is due while the one before has not ended is skipped, with a log record. Times as with Schedule() in
    // schedule.h.
    template <typename When, typename Rep, typename Period, typename F>
    void Schedule(const wchar_t* name, const When& when, const std::chrono::duration<Rep, Period>& interval,
                  F&& callable, OnFailure onFailure = OnFailure::GoOn) {
        AddSchedule(name, ScheduleAccess::StartOf(when), DelayOf(when), ScheduleAccess::ToTicks(interval),
                    std::function<void()>(std::forward<F>(callable)), onFailure, Internal::LedgerOfThisModule());
    }

    // Returns when all jobs have ended and no schedule is active.
    void Wait();

    // The same with a time-out or deadline: return false if it was not enough, and throw as Wait() otherwise.
    template <typename Rep, typename Period>
    [[nodiscard]] bool WaitFor(const std::chrono::duration<Rep, Period>& timeout) {
        return WaitForTicks(Internal::ToNanoseconds(timeout));
    }
    template <typename Clock, typename ClockDuration>
    [[nodiscard]] bool WaitUntil(const std::chrono::time_point<Clock, ClockDuration>& deadline) {
        return Internal::WaitUntilTime(deadline,
                                       [this](std::chrono::nanoseconds slice) { return WaitForTicks(slice); });
    }

    // Asks all jobs to leave, those that wait for their turn included, and ends the schedules. The group is spent then. Inside
    // one of its jobs it only makes the request: the next cancellation point throws.
    void Cancel();
    template <typename Rep, typename Period>
    void CancelAfter(const std::chrono::duration<Rep, Period>& limit) {
        CancelAfterTicks(Internal::ToNanoseconds(limit));
    }
    void CancelWhen(HANDLE handle);

    // For a component that is to be unloaded. Asks all jobs to leave, and waits until they have ended and the threads that ran
    // them have left their code. Then it destroys the callables, records and failures that it keeps, also those that a GroupJob
    // could still read. Returns what the library holds all the same of the modules whose code the group has run: results whose GroupJob
    // exists, jobs that do not belong to this group. If that IsNone(), FreeLibrary() takes the module away. The group is spent.
    //
    // It does not see copies of an exception_ptr outside of the library, nor objects of the module that the program itself keeps.
    // A thread_local object with a destructor that a job has used keeps the module until that worker ends.
    // Threads: not inside a job of the group. It is no cancellation point.
    // Errors: std::system_error (resource_deadlock_would_occur) if it would wait for itself; std::logic_error under the loader's
    //     lock (DllMain, static objects of a DLL), where no thread can end; std::bad_alloc.
    [[nodiscard]] ModuleUse Leave();

    // As it was given.
    std::wstring GetName() const;

    // How many jobs wait, run and have ended, at one moment.
    JobCounts Counts() const;

    // Why the group was asked first; None if it was not.
    CancelReason GetCancelReason() const;

    // The failures so far, in the order of time.
    std::vector<JobFailure> Failures() const;

    // A pass over the jobs in the order in which they end. Each record is handed out once; the pass waits for the next one,
    // and ends when no job is left. Throws no failure: it is in the record.
    class Iterator {
      public:
        // What the standard library asks of an iterator.
        using iterator_category = std::input_iterator_tag;
        using value_type = EndedJob;
        using difference_type = std::ptrdiff_t;
        using pointer = const EndedJob*;
        using reference = const EndedJob&;

        // Waits for the first end.
        explicit Iterator(JobGroup& group) : m_group(&group) { ++*this; }

        // The record of the job that has ended.
        const EndedJob& operator*() const noexcept { return m_ended; }
        const EndedJob* operator->() const noexcept { return &m_ended; }

        // Waits for the next end.
        Iterator& operator++() {
            if (!m_group->NextEnded(m_ended)) {
                m_group = nullptr;
            }
            return *this;
        }
        void operator++(int) { ++*this; }

        // Whether no job is left.
        bool operator==(std::default_sentinel_t) const noexcept { return m_group == nullptr; }

      private:
        JobGroup* m_group;
        EndedJob m_ended;
    };

    // For loops over the group: begin() waits for the first end.
    Iterator begin() { return Iterator(*this); }
    std::default_sentinel_t end() const noexcept { return {}; }

    // Keeps no records for the iteration from now on. Otherwise the group keeps one of some hundred bytes for each job that has
    // ended, until the iteration takes it: call this for a group that lives as long as a service.
    void ForgetEnded() noexcept;

    // Not for callers.
    Internal::GroupCore& Core() const noexcept { return *m_core; }

  private:
    class ORVANE_CONCURRENCY_API Reservation {
      public:
        explicit Reservation(JobGroup& group);
        ~Reservation();
        Reservation(const Reservation&) = delete;
        Reservation& operator=(const Reservation&) = delete;

        bool IsThere() const noexcept { return m_isThere; }
        void Use(const Internal::JobRef& job);

      private:
        JobGroup& m_group;
        bool m_isThere;
    };

    template <typename F, typename... Arguments>
    Internal::JobRef Build(const wchar_t* name, F&& callable, Arguments&&... arguments) {
        using Body = Internal::JobBody<std::decay_t<F>, std::decay_t<Arguments>...>;
        return Internal::BuildInto(MakeJob(name, Body::Type()), std::forward<F>(callable),
                                   std::forward<Arguments>(arguments)...);
    }

    Internal::JobRef MakeJob(const wchar_t* name, const Internal::JobBodyType& type);
    void Add(const Internal::JobRef& job);
    void AddInNewThread(const Internal::JobRef& job);
    // Of a schedule, as the caller said it.
    template <typename Rep, typename Period>
    static Duration DelayOf(const std::chrono::duration<Rep, Period>& delay) {
        return ScheduleAccess::ToTicks(delay);
    }
    template <typename ClockDuration>
    static Duration DelayOf(const std::chrono::time_point<std::chrono::system_clock, ClockDuration>& start) {
        return ScheduleAccess::ToTicks(start - std::chrono::system_clock::now());
    }

    void AddSchedule(const wchar_t* name, const TimePoint& start, const Duration& delay, const Duration& interval,
                     std::function<void()> work, OnFailure onFailure, Internal::ModuleLedger& module);
    bool WaitForTicks(std::chrono::nanoseconds timeout);
    void CancelAfterTicks(std::chrono::nanoseconds limit);
    bool NextEnded(EndedJob& ended);

    std::shared_ptr<Internal::GroupCore> m_core;
};

}  // namespace Orvane
