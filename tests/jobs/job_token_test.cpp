// Stop tokens, into a job and out of it, and why a job was asked.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/future_state.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/on_request.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class TokenIntoAJob : public JobTest {
  protected:
    std::stop_source m_source;
};

TEST_F(TokenIntoAJob, ThatIsStoppedAlreadyKeepsItFromRunning) {
    m_source.request_stop();
    std::atomic<bool> hasRun = false;
    bool isDestroyed = false;
    auto job =
        Run(L"job", m_source.get_token(), [&hasRun, end = AtEnd([&] { isDestroyed = true; })] { hasRun = true; });
    EXPECT_TRUE(isDestroyed);
    EXPECT_TRUE(job.IsReady());
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Token);
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(RunInNewThread(L"job", m_source.get_token(), [&hasRun] { hasRun = true; }).IsReady());
    EXPECT_FALSE(hasRun);
}

TEST_F(TokenIntoAJob, CancelsItWhileItRuns) {
    const auto begun = std::make_shared<Gate>();
    auto job = RunInNewThread(L"job", m_source.get_token(), [begun] {
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    m_source.request_stop();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Token);
}

TEST_F(TokenIntoAJob, PassesArgumentsOn) {
    EXPECT_EQ(Run(L"job", m_source.get_token(), [](int left, int right) { return left - right; }, 7, 2).Get(), 5);
    EXPECT_EQ(Run(L"job", std::stop_token(), [] { return 7; }).Get(), 7);
}

TEST_F(TokenIntoAJob, ConcernsItNoLongerWhenItHasEnded) {
    auto job = Run(L"job", m_source.get_token(), [] { return 7; });
    job.Wait();
    m_source.request_stop();
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(job.Get(), 7);
    m_source = {};
    Job<int>(Run(L"job", m_source.get_token(), [] { return 7; })).Get();
    m_source.request_stop();  // the job is gone
}

// A throw out of the callback would end the process.
TEST_F(TokenIntoAJob, StoppedOnItsOwnThreadOnlyMakesTheRequest) {
    bool wentOn = false;
    auto job = Run(L"job", m_source.get_token(), [&] {
        m_source.request_stop();
        wentOn = true;
        EXPECT_TRUE(IsCancellationRequested());
        CancellationPoint();
    });
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(wentOn);
}

// What makes the request; `job` sleeps.
struct Asking {
    const char* name;
    CancelCause cause;
    const wchar_t* by;
    void (*ask)(std::optional<Job<void>>& job, std::optional<Job<void>>& parent, std::stop_source& source);
};

std::ostream& operator<<(std::ostream& stream, const Asking& asking) {
    return stream << asking.name;
}

const Asking kAskings[] = {
    {"Handle", CancelCause::Handle, L"", [](auto& job, auto&, auto&) { job->Cancel(); }},
    {"Dropped", CancelCause::Dropped, L"", [](auto& job, auto&, auto&) { job.reset(); }},
    {"Parent", CancelCause::Parent, L"parent", [](auto&, auto& parent, auto&) { parent->Cancel(); }},
    {"Limit", CancelCause::Limit, L"job", [](auto& job, auto&, auto&) { job->CancelAfter(1ms); }},
    {"Token", CancelCause::Token, L"", [](auto&, auto&, auto& source) { source.request_stop(); }},
};

class TokenOfAJob : public JobTest {};
class TokenOfAJobAskedBy : public JobTest, public testing::WithParamInterface<Asking> {};

TEST_P(TokenOfAJobAskedBy, EachCauseIsStoppedAndSaysWhy) {
    std::optional<Job<void>> job;
    std::optional<Job<void>> parent;
    std::stop_source source;
    const auto begun = std::make_shared<Gate>();
    const auto isKept = std::make_shared<Gate>();
    CancelReason reason;
    std::atomic<int> callbacks = 0;
    bool wasStopped = false;
    parent = Run(L"parent", [&, begun, isKept] {
        job = Orvane::Run(L"job", source.get_token(), [&, begun] {
            const std::stop_token token = StopTokenOfThisJob();
            const std::stop_callback callback(token, [&callbacks] { ++callbacks; });
            EXPECT_FALSE(token.stop_requested());
            begun->Open();
            try {
                SleepUntilAsked();
            } catch (const CancelRequestedException&) {
                // The request wakes the sleep before it comes to the token.
                while (!token.stop_requested()) {
                    Sleep(1);
                }
                wasStopped = true;
                reason = CancelReasonOfThisJob();
                throw;
            }
        });
        isKept->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    isKept->Wait();
    GetParam().ask(job, parent, source);
    if (job) {
        job->Wait();
        EXPECT_EQ(job->GetCancelReason().cause, GetParam().cause);
    }
    EXPECT_TRUE(wasStopped);
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(reason.cause, GetParam().cause);
    EXPECT_EQ(reason.by, GetParam().by);
}

INSTANTIATE_TEST_SUITE_P(All, TokenOfAJobAskedBy, testing::ValuesIn(kAskings),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(TokenOfAJob, OutsideARunIsNeverStopped) {
    EXPECT_FALSE(StopTokenOfThisJob().stop_possible());
    EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::None);
}

TEST_F(TokenOfAJob, IsOneForTheRun) {
    Run(L"job", [] {
        EXPECT_EQ(StopTokenOfThisJob(), StopTokenOfThisJob());
        EXPECT_TRUE(StopTokenOfThisJob().stop_possible());
        EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::None);
    }).Get();
}

TEST_F(TokenOfAJob, ThatIsTakenAfterTheRequestIsStopped) {
    Job<void> job;
    const auto mayAsk = std::make_shared<Gate>();
    job = Run(L"job", [&job, mayAsk] {
        mayAsk->Wait();
        job.Cancel();
        EXPECT_TRUE(StopTokenOfThisJob().stop_requested());
    });
    mayAsk->Open();
    job.Get();
}

// The job's own request runs its callbacks on its own thread, before Cancel() returns, and does not throw through them.
TEST_F(TokenOfAJob, IsStoppedByTheJobItself) {
    Job<void> job;
    const auto mayAsk = std::make_shared<Gate>();
    job = Run(L"job", [&job, mayAsk] {
        mayAsk->Wait();
        DWORD thread = 0;
        const std::stop_callback callback(StopTokenOfThisJob(), [&] {
            thread = GetCurrentThreadId();
            job.Cancel();  // once more
        });
        job.Cancel();
        EXPECT_EQ(thread, GetCurrentThreadId());
    });
    mayAsk->Open();
    job.Get();
}

TEST_F(TokenOfAJob, OfAStatedTaskIsStoppedWithIt) {
    std::optional<std::stop_token> token;
    Gate isThere;
    const TaskThread task([&] {
        token = StopTokenOfThisJob();
        isThere.Open();
        SleepUntilAsked();
    });
    isThere.Wait();
    EXPECT_TRUE(token->stop_possible());
    EXPECT_FALSE(token->stop_requested());
    Task handle = task.GetTask();
    handle.Cancel();
    EXPECT_TRUE(token->stop_requested());
}

TEST_F(TokenOfAJob, OfAScheduledRunIsStoppedWithItsTracker) {
    Gate begun;
    Gate isStopped;
    auto tracker = Schedule(L"scheduled", 0s, 0s, [&] {
        const std::stop_callback callback(StopTokenOfThisJob(), [&] { isStopped.Open(); });
        begun.Open();
        isStopped.Wait();  // not a cancellable wait
    });
    begun.Wait();
    tracker.Cancel();
    EXPECT_TRUE(isStopped.IsOpen());
}

TEST_F(TokenOfAJob, WakesAConditionThatTakesTokens) {
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"job", [begun] {
        std::mutex mutex;
        std::condition_variable_any condition;
        std::unique_lock lock(mutex);
        begun->Open();
        return condition.wait(lock, StopTokenOfThisJob(), [] { return false; });
    });
    begun->Wait();
    job.Cancel();
    EXPECT_FALSE(job.Get());  // a value that came although it was asked
}

// A request stops the tokens when it has asked all. Here it waits with the second job until the first one has ended.
TEST_F(TokenOfAJob, IsStoppedThoughItsRunEndsWhileOthersAreAsked) {
    Gate firstBegun;
    Gate secondBegun;
    Gate secondIsAsked;
    std::stop_token token;
    GroupJob<void> first;
    JobGroup group(L"group");
    first = group.Run(L"first", [&] {
        token = StopTokenOfThisJob();
        firstBegun.Open();
        SleepUntilAsked();
    });
    firstBegun.Wait();
    group.Run(L"second", [&] {
        const OnRequest held([&] {
            EXPECT_TRUE(Eventually([&first] { return first.IsReady(); }));
            secondIsAsked.Open();
        });
        secondBegun.Open();
        secondIsAsked.Wait();
    });
    secondBegun.Wait();
    group.Cancel();
    EXPECT_TRUE(token.stop_requested());
}

// The end of the callback must wake the job's thread, which sleeps in the compiler's library by then.
TEST_F(TokenOfAJob, CallbackMayBeDestroyedWhileItRuns) {
    Gate begun;
    Gate isAsked;
    Gate mayReturn;
    auto job = Run(L"job", [&] {
        const std::stop_callback callback(StopTokenOfThisJob(), [&] {
            isAsked.Open();
            mayReturn.Wait();
        });
        begun.Open();
        isAsked.Wait();
    });
    begun.Wait();
    const Thread asker([&job] { job.Cancel(); });
    isAsked.Wait();
    EXPECT_FALSE(job.WaitFor(50ms));
    mayReturn.Open();
    EXPECT_TRUE(job.WaitFor(60s));
}

// Callbacks run without a lock of the library: they may use it.
TEST_F(TokenOfAJob, CallbacksMayUseOtherJobs) {
    const auto begun = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    int results = 0;
    auto job = Run(L"job", [&results, begun, mayEnd] {
        const std::stop_callback callback(StopTokenOfThisJob(), [&results] {
            for (int i = 0; i < 32; ++i) {  // each shard of the registry, most likely
                results += Orvane::Run(L"other", [] { return 1; }).Get();
            }
        });
        begun->Open();
        mayEnd->Wait();
    });
    begun->Wait();
    job.Cancel();
    EXPECT_EQ(results, 32);
    mayEnd->Open();
}

class ReasonOfAJob : public JobTest {};

TEST_F(ReasonOfAJob, IsTheFirst) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    job.CancelAfter(0s);
    job.Cancel();
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Limit);
    mayEnd->Open();
}

TEST_F(ReasonOfAJob, IsTheTaskThatPassesARequestOn) {
    std::weak_ptr<FutureState> future;
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"job", [&future, begun] {
        future = GetFutureObject();
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    Gate isRegistered;
    TaskThread task([&] {
        const auto adapter = FutureNotificationAdapter::CreateInstance(future);
        isRegistered.Open();
        while (!IsCancellationRequested()) {
            Sleep(1);
        }
    });
    isRegistered.Wait();
    task.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Task);
}

TEST_F(ReasonOfAJob, IsSaidInWords) {
    EXPECT_EQ(ToText({CancelCause::GroupFailure, L"Fetch 17"}), L"asked by the failure of Fetch 17");
    EXPECT_EQ(ToText({CancelCause::Parent, L"Import"}), L"asked with Import");
    EXPECT_EQ(ToText(CancelReason()), L"not asked");
    for (int cause = 0; cause <= static_cast<int>(CancelCause::Shutdown); ++cause) {
        EXPECT_NE(ToText({static_cast<CancelCause>(cause), L""}), L"") << cause;
    }
}

}  // namespace
