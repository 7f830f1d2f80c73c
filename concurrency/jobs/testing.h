#pragma once

#include <chrono>
#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/jobs/job.h"

namespace Orvane {

namespace Internal {
class VirtualRun;
}  // namespace Internal

namespace Testing {

// For the tests of code that uses jobs: jobs run one at a time, in a fixed order, and time passes only when all of them wait.
//
//     Orvane::Testing::VirtualTime time;
//     auto answer = Orvane::Run(L"Slow", [] { Orvane::CancellableSleep(3'600'000); return 42; });
//     EXPECT_EQ(answer.Get(), 42);         // at once
//     EXPECT_EQ(time.Elapsed(), 1h);
//
// While the object lives, the jobs, groups and loops that its thread starts, and those that these jobs start, run in it. A job
// begins when the test waits: in Get() and the other waits of jobs and groups, in Advance() and in RunUntilIdle(). Jobs begin in
// the order in which they were started. Another one goes on where one blocks: in a wait for jobs or groups, or in
// CancellableSleep(). When all are blocked, time jumps to the next moment at which something happens: a sleep, a wait's time-out,
// a time limit, or a run of JobGroup::Schedule().
//
// What is not in virtual time: handle waits, mutexes and conditions, Schedule() and trackers, and tasks that are no jobs. A job
// that blocks there keeps all the others from running. So hold no lock while you wait.
//
// Threads: construct, use and destroy it on one thread, outside a run. The jobs have threads of their own.
// Cancellation: Advance() and RunUntilIdle() are no cancellation points.
// Errors: std::logic_error from a wait of the test, if nothing is left that could end it; from the constructor, if the thread has
//     such an object already. std::bad_alloc; std::system_error if a thread cannot be started.
// Memory: one thread runs at a time: each sees everything that the ones before it have done.
// Lifetime: the library must be initialised. The destructor runs what is left to its end; what would wait for ever it asks.
class ORVANE_CONCURRENCY_API VirtualTime {
  public:
    // From here to its end the thread lives in virtual time.
    VirtualTime();

    // Runs what is left to its end.
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    // Since the construction.
    std::chrono::nanoseconds Elapsed() const;

    // Lets time pass: everything that happens until then happens in it.
    template <typename Rep, typename Period>
    void Advance(const std::chrono::duration<Rep, Period>& duration) {
        AdvanceTicks(Internal::ToNanoseconds(duration));
    }

    // Runs everything that can run without time passing.
    void RunUntilIdle();

  private:
    void AdvanceTicks(std::chrono::nanoseconds duration);

    std::unique_ptr<Internal::VirtualRun> m_run;
};

}  // namespace Testing
}  // namespace Orvane
