// When and where the callable, the result and the exception of a job are destroyed.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// The thread on which something was destroyed; 0 before.
using DestroyedOn = std::shared_ptr<std::atomic<DWORD>>;

DestroyedOn NotYet() {
    return std::make_shared<std::atomic<DWORD>>(0);
}

std::shared_ptr<void> Marking(const DestroyedOn& on) {
    return AtEnd([on] { *on = GetCurrentThreadId(); });
}

class JobParts : public JobTest {
  protected:
    const DWORD m_thisThread = GetCurrentThreadId();
};

// Plain, not atomic: what the destructors write is visible after the wait.
TEST_F(JobParts, OfTheCallAreGoneWhenAValueIsVisible) {
    int destroyed = 0;
    const auto count = [&destroyed] { ++destroyed; };
    auto job = Run(L"returns", [captured = AtEnd(count)](const std::shared_ptr<void>&) { return 7; }, AtEnd(count));
    job.Wait();
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(job.Get(), 7);
}

TEST_F(JobParts, OfTheCallAreGoneWhenAFailureIsVisible) {
    int destroyed = 0;
    const auto count = [&destroyed] { ++destroyed; };
    auto job =
        RunInNewThread(L"throws", [captured = AtEnd(count)](const std::shared_ptr<void>&) { throw 42; }, AtEnd(count));
    job.Wait();
    EXPECT_EQ(destroyed, 2);
    EXPECT_THROW(job.Get(), int);
}

TEST_F(JobParts, OfTheCallAreGoneWhenACancellationIsVisible) {
    int destroyed = 0;
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"leaves", [begun, captured = AtEnd([&destroyed] { ++destroyed; })] {
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    job.Cancel();
    job.Wait();
    EXPECT_EQ(destroyed, 1);
}

TEST_F(JobParts, OfTheCallThatTakeTheirTimeDelayTheEnd) {
    const auto begun = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    auto job = Run(L"slow", [captured = AtEnd([begun, mayEnd] {
                                 begun->Open();
                                 mayEnd->Wait();
                             })] {});
    begun->Wait();
    EXPECT_FALSE(job.IsReady());
    EXPECT_FALSE(job.WaitFor(std::chrono::milliseconds(30)));
    mayEnd->Open();
    job.Get();
}

TEST_F(JobParts, OfACallThatHasRunDieOnItsThread) {
    const auto on = NotYet();
    DWORD ranOn = 0;
    Run(L"runs", [&ranOn, captured = Marking(on)] { ranOn = GetCurrentThreadId(); }).Get();
    EXPECT_EQ(*on, ranOn);
    EXPECT_NE(*on, m_thisThread);
}

TEST_F(JobParts, OfACallThatIsCancelledBeforeItsStartDieOnTheThreadThatAsks) {
    FullPool pool;
    const auto on = NotYet();
    std::atomic<bool> hasRun = false;
    auto job = Run(L"waits", [&hasRun, captured = Marking(on)] { hasRun = true; });
    EXPECT_EQ(*on, 0U);
    job.Cancel();
    EXPECT_EQ(*on, m_thisThread);
    EXPECT_TRUE(job.IsReady());
    EXPECT_THROW(job.Get(), CancelledException);
    pool.Release();
    EXPECT_FALSE(hasRun);
}

TEST_F(JobParts, OfACallThatIsDroppedBeforeItsStartDieInTheDestructor) {
    FullPool pool;
    const auto on = NotYet();
    {
        const auto job = Run(L"waits", [captured = Marking(on)] {});
        EXPECT_EQ(*on, 0U);
    }
    EXPECT_EQ(*on, m_thisThread);
}

TEST_F(JobParts, OfACallWhoseTokenIsStoppedBeforeItsStartDieOnTheThreadThatStops) {
    FullPool pool;
    const auto on = NotYet();
    std::stop_source source;
    const auto job = Run(L"waits", source.get_token(), [captured = Marking(on)] {});
    EXPECT_EQ(*on, 0U);
    DWORD stopper = 0;
    PlainThread([&] {
        stopper = GetCurrentThreadId();
        source.request_stop();
    }).Join();
    EXPECT_EQ(*on, stopper);
    EXPECT_TRUE(job.IsReady());
}

// The second pass of a request destroys what will not run; meanwhile nothing has ended.
TEST_F(JobParts, OfACallThatIsCancelledMayWaitForItsHandleNowhereElse) {
    FullPool pool;
    const auto begun = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    auto job = Run(L"waits", [captured = AtEnd([=] {
                                  begun->Open();
                                  mayEnd->Wait();
                              })] {});
    PlainThread canceller([&job] { job.Cancel(); });
    begun->Wait();
    EXPECT_FALSE(job.IsReady());
    mayEnd->Open();
    canceller.Join();
    EXPECT_TRUE(job.IsReady());
}

TEST_F(JobParts, OfAResultDieWithTheHandleOnItsThread) {
    const auto on = NotYet();
    {
        const auto job = Run(L"returns", [on] { return Marking(on); });
        job.Wait();
        EXPECT_EQ(*on, 0U);
    }
    EXPECT_EQ(*on, m_thisThread);
}

TEST_F(JobParts, OfAResultGoToTheOneWhoGetsIt) {
    const auto on = NotYet();
    auto job = Run(L"returns", [on] { return Marking(on); });
    {
        const auto result = job.Get();
        EXPECT_EQ(*on, 0U);
    }
    EXPECT_EQ(*on, m_thisThread);
}

// What is left of the result after it was moved out dies in Get(), not later.
TEST_F(JobParts, OfAMovedResultAreGoneAfterGet) {
    struct Counted {
        explicit Counted(int& alive) : count(&alive) { ++*count; }
        Counted(Counted&& other) noexcept : count(other.count) { ++*count; }
        ~Counted() { --*count; }
        int* count;
    };
    int alive = 0;
    auto job = Run(L"returns", [&alive] { return Counted(alive); });
    {
        const Counted result = job.Get();
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST_F(JobParts, OfAnExceptionDieOnTheThreadOfTheHandle) {
    const auto read = NotYet();
    auto job = Run(L"throws", [read] { throw Marking(read); });
    EXPECT_THROW(job.Get(), std::shared_ptr<void>);
    EXPECT_EQ(*read, m_thisThread);

    const auto dropped = NotYet();
    job = Run(L"throws", [dropped] { throw Marking(dropped); });
    job.Wait();
    EXPECT_EQ(*dropped, 0U);
    job = {};
    EXPECT_EQ(*dropped, m_thisThread);
}

TEST_F(JobParts, OfADetachedResultDieWithTheRun) {
    const auto on = NotYet();
    const auto mayEnd = std::make_shared<Gate>();
    auto job = Run(L"detached", [on, mayEnd] {
        mayEnd->Wait();
        return Marking(on);
    });
    job.Detach();
    Post(L"posted", [] { return std::make_unique<int>(7); });
    mayEnd->Open();
    EXPECT_TRUE(Eventually([&] { return *on != 0; }));
    EXPECT_NE(*on, m_thisThread);
}

TEST_F(JobParts, OfAnEndedResultDieInDetach) {
    const auto on = NotYet();
    auto job = Run(L"ended", [on] { return Marking(on); });
    job.Wait();
    job.Detach();
    EXPECT_EQ(*on, m_thisThread);
}

TEST_F(JobParts, OfAResultThatBlockAreDestroyedWithoutALockOfTheLibrary) {
    const auto begun = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    auto job = std::make_unique<Job<std::shared_ptr<void>>>(Run(L"slow", [=] {
        return AtEnd([=] {
            begun->Open();
            mayEnd->Wait();
        });
    }));
    job->Wait();
    PlainThread dropper([&job] { job.reset(); });
    begun->Wait();
    for (int i = 0; i < 32; ++i) {  // every shard is in use
        EXPECT_EQ(Run(L"other", [i] { return i; }).Get(), i);
    }
    mayEnd->Open();
    dropper.Join();
}

}  // namespace
