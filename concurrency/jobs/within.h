// Time limits for a part of a run, and time to tidy up after a request.
//
//     try {
//         const Orvane::Within limit(L"Handshake", 2s);
//         SayHello(socket);            // its sleeps, waits and locks leave after 2 s
//     } catch (const Orvane::TimeLimitException& late) {
//         Show(late.what());           // TimeLimitException: the time limit of 2 s of Handshake
//     }
//
//     ~Transfer() {
//         const Orvane::CleanUpScope scope(5s);
//         TellTheServer();             // may wait, although the job was asked to leave; for 5 s at most
//     }
//
// Both also work on a thread that is in no run.
//
// Threads: construct and destroy a scope on one thread. Scopes end in the reverse order, and before the run and the last
//     uninitialisation; one that does not ends the process with a log record.
// Cancellation: in a scope all cancellation points test the scope, and StopTokenOfThisJob() is a token of the scope. What is
//     started in it is asked with it, also when it outlives the scope. CancelReasonOfThisJob() and Cancel() are about the job, as
//     outside. A task that is run on this thread inside the scope is a run of its own, which the scope does not reach.
//     Neither constructor nor destructor is a cancellation point.
// Errors: the constructors throw Unexpected without initialisation, std::bad_alloc, and std::system_error if the thread of the
//     limits cannot be started; there is no scope then.
// Memory: what a scope throws orders nothing; what is started in it, as job.h says.
// Lifetime: a stop token got inside is of no use after the scope, unless what was started in the scope still runs.
#pragma once

#include <chrono>
#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/time_limit_exceptions.h"
#include "concurrency/jobs/job.h"

namespace Orvane {

namespace Internal {
class ScopeRun;
}  // namespace Internal

// After the time all cancellation points inside throw TimeLimitException, which names the limit. Jobs that were started inside
// are asked with CancelCause::Limit, and their Get() throws TimeLimitException. Requests for the run still come through: then the
// cancellation points throw CancelRequestedException, even if the time is up as well. Of two limits that are over the outer one
// is named.
//
// A limit of zero or less is over at once; one beyond the end of time never. What does not wait is not cut: to return although
// the time is up is no error. A wait that would close a ring of waiting jobs throws at once, limit or not.
class [[nodiscard]] ORVANE_CONCURRENCY_API Within {
  public:
    // The limit has the name of the job, if there is one.
    template <typename Rep, typename Period>
    [[nodiscard]] explicit Within(const std::chrono::duration<Rep, Period>& limit)
        : Within(nullptr, Internal::ToNanoseconds(limit), 0) {}
    // The limit has this name.
    template <typename Rep, typename Period>
    [[nodiscard]] Within(const wchar_t* name, const std::chrono::duration<Rep, Period>& limit)
        : Within(name, Internal::ToNanoseconds(limit), 0) {}

    ~Within();
    Within(const Within&) = delete;
    Within& operator=(const Within&) = delete;

  private:
    Within(const wchar_t* name, std::chrono::nanoseconds limit, int);

    const std::shared_ptr<Internal::ScopeRun> m_run;
};

// Hides from all cancellation points inside that the run, or a Within around the scope, was asked. Jobs that are started inside
// are not asked either. When the time is over, all of that is as outside: the cancellation points throw, and the jobs are asked,
// if there was a request, or as soon as there is one.
//
// A CleanUpScope inside another one ends its time with that one's at the latest. A Within inside cuts its waits as it does
// elsewhere: use it for what may be given up sooner. A request by Cancel() on the run's own thread throws, or not, as outside.
class [[nodiscard]] ORVANE_CONCURRENCY_API CleanUpScope {
  public:
    // For `time` at most; zero or less hides nothing.
    template <typename Rep, typename Period>
    [[nodiscard]] explicit CleanUpScope(const std::chrono::duration<Rep, Period>& time)
        : CleanUpScope(Internal::ToNanoseconds(time), 0) {}

    ~CleanUpScope();
    CleanUpScope(const CleanUpScope&) = delete;
    CleanUpScope& operator=(const CleanUpScope&) = delete;

  private:
    CleanUpScope(std::chrono::nanoseconds time, int);

    const std::shared_ptr<Internal::ScopeRun> m_run;
};

}  // namespace Orvane
