// Waiting for one job: time-outs, deadlines, requests, and the notifier that was there before.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/counting_notifier.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class JobWait : public JobTest {
  protected:
    const std::shared_ptr<Gate> m_mayEnd = std::make_shared<Gate>();
    Job<void> m_held = RunHeld(m_mayEnd);

    ~JobWait() override { m_mayEnd->Open(); }
};

TEST_F(JobWait, ThatIsShortSaysThatTheJobHasNotEnded) {
    EXPECT_FALSE(m_held.WaitFor(1ms));
    EXPECT_FALSE(m_held.WaitFor(0s));
    EXPECT_FALSE(m_held.WaitFor(-1h));
    EXPECT_FALSE(m_held.WaitFor((std::chrono::nanoseconds::min)()));
    EXPECT_FALSE(m_held.WaitFor((std::chrono::hours::min)()));
    EXPECT_FALSE(m_held.WaitUntil(std::chrono::steady_clock::now() + 1ms));
    EXPECT_FALSE(m_held.WaitUntil(std::chrono::system_clock::now() + 1ms));
    EXPECT_FALSE(m_held.WaitUntil((std::chrono::steady_clock::time_point::min)()));
}

TEST_F(JobWait, ForAnEndedJobSucceedsWhateverTheTime) {
    m_mayEnd->Open();
    m_held.Wait();
    EXPECT_TRUE(m_held.WaitFor(0s));
    EXPECT_TRUE(m_held.WaitFor(-1h));
    EXPECT_TRUE(m_held.WaitFor((std::chrono::hours::max)()));
    EXPECT_TRUE(m_held.WaitUntil((std::chrono::steady_clock::time_point::min)()));
}

// Each of these is a wait without a limit, not one whose end wraps around into the past.
TEST_F(JobWait, UntilBeyondTheEndOfTimeWaitsForTheEnd) {
    using Hours = std::chrono::hours;
    using Minutes = std::chrono::minutes;
    std::atomic<int> ended = 0;
    const auto wait = [&](auto call) {
        return [&ended, call] {
            EXPECT_TRUE(call());
            ++ended;
        };
    };
    std::list<BackgroundCall> calls;
    calls.emplace_back(wait([this] { return m_held.WaitFor((Hours::max)()); }));
    calls.emplace_back(wait([this] { return m_held.WaitFor((std::chrono::nanoseconds::max)()); }));
    calls.emplace_back(wait([this] { return m_held.WaitFor(std::chrono::duration<double>(1e300)); }));
    calls.emplace_back(wait([this] { return m_held.WaitUntil((std::chrono::steady_clock::time_point::max)()); }));
    calls.emplace_back(
        wait([this] { return m_held.WaitUntil((std::chrono::time_point<std::chrono::steady_clock, Hours>::max)()); }));
    calls.emplace_back(wait(
        [this] { return m_held.WaitUntil((std::chrono::time_point<std::chrono::system_clock, Minutes>::max)()); }));
    Sleep(50);
    EXPECT_EQ(ended, 0);
    m_mayEnd->Open();
    for (const BackgroundCall& call : calls) {
        EXPECT_TRUE(call.Ends());
    }
}

// A clock in the hands of the test.
struct OwnClock {
    using duration = std::chrono::milliseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<OwnClock>;
    static constexpr bool is_steady = false;
    static time_point now() { return time_point(duration(s_now.load())); }

    static inline std::atomic<rep> s_now = 0;
};

TEST_F(JobWait, UntilATimeOfAnyClockFollowsThatClock) {
    OwnClock::s_now = 0;
    std::optional<bool> result;
    const BackgroundCall call([&] { result = m_held.WaitUntil(OwnClock::time_point(1h)); });
    Sleep(50);
    EXPECT_TRUE(call.IsRunning());
    OwnClock::s_now += 3'600'000;
    EXPECT_TRUE(call.Ends());
    EXPECT_EQ(result, false);
}

TEST_F(JobWait, OfManyThreadsEndsWithTheJob) {
    std::atomic<int> ended = 0;
    std::list<PlainThread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            m_held.Wait();
            EXPECT_TRUE(m_held.IsReady());
            ++ended;
        });
    }
    Sleep(20);
    EXPECT_EQ(ended, 0);
    m_mayEnd->Open();
    for (PlainThread& thread : threads) {
        thread.Join();
    }
    EXPECT_EQ(ended, 8);
}

// All waits, each for a job that stays.
struct KindOfWait {
    const char* name;
    void (*call)(Job<int>& job);
};

std::ostream& operator<<(std::ostream& stream, const KindOfWait& kind) {
    return stream << kind.name;
}

std::vector<Job<int>> RangeOf(Job<int>& job) {
    std::vector<Job<int>> range;
    range.push_back(std::move(job));
    return range;
}

const KindOfWait kWaits[] = {
    {"Get", [](Job<int>& job) { job.Get(); }},
    {"Wait", [](Job<int>& job) { job.Wait(); }},
    {"WaitFor", [](Job<int>& job) { (void)job.WaitFor(1h); }},
    {"WaitUntil", [](Job<int>& job) { (void)job.WaitUntil(std::chrono::steady_clock::now() + 1h); }},
    {"WhenAll", [](Job<int>& job) { (void)WhenAll(job); }},
    {"WhenAny", [](Job<int>& job) { WhenAny(job); }},
    {"WhenAllFor", [](Job<int>& job) { (void)WhenAllFor(1h, job); }},
    {"WhenAnyUntil", [](Job<int>& job) { WhenAnyUntil(std::chrono::system_clock::now() + 1h, job); }},
    {"WhenAllInARange",
     [](Job<int>& job) {
         auto jobs = RangeOf(job);
         (void)WhenAll(jobs);
     }},
};

class JobWaitOf : public JobTest, public testing::WithParamInterface<KindOfWait> {};

// The awaited job leaves after that only, so it is the wait that leaves.
TEST_P(JobWaitOf, EachKindIsWokenByARequest) {
    auto awaited = Run(L"awaited", []() -> int { SleepUntilAsked(); });
    const auto begun = std::make_shared<Gate>();
    bool hasThrown = false;
    auto waits = RunInNewThread(L"waits", [&, begun] {
        begun->Open();
        try {
            GetParam().call(awaited);
        } catch (const CancelRequestedException&) {
            hasThrown = true;
            throw;
        }
    });
    begun->Wait();
    EXPECT_FALSE(waits.WaitFor(30ms));
    waits.Cancel();
    EXPECT_THROW(waits.Get(), CancelledException);
    EXPECT_TRUE(hasThrown);
}

TEST_P(JobWaitOf, EachKindTestsForARequestFirstAndLeavesTheResult) {
    std::optional<Job<int>> awaited = Run(L"awaited", [] { return 7; });
    awaited->Wait();
    Job<int> waits;
    const auto mayWait = std::make_shared<Gate>();
    bool hasThrown = false;
    waits = Run(L"waits", [&, mayWait] {
        mayWait->Wait();
        waits.Cancel();
        try {
            GetParam().call(*awaited);
        } catch (const CancelRequestedException&) {
            hasThrown = true;
        }
        return 1;
    });
    mayWait->Open();
    waits.Wait();
    EXPECT_TRUE(hasThrown);
    if (std::string(GetParam().name) != "WhenAllInARange") {
        EXPECT_EQ(awaited->Get(), 7);
    }
}

INSTANTIATE_TEST_SUITE_P(All, JobWaitOf, testing::ValuesIn(kWaits),
                         [](const auto& instance) { return std::string(instance.param.name); });

// What the run had registered before it waited for a job.
class NotifierOfARun : public JobTest {};

TEST_F(NotifierOfARun, IsBackAfterAWait) {
    const auto registered = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    const auto notifier = std::make_shared<CountingNotifier>();
    auto job = Run(L"waits", [=] {
        GetCancellationObject()->RegisterNotifier(notifier);
        auto inner = Orvane::Run(L"inner", [] { return 1; });
        inner.Wait();
        EXPECT_EQ(inner.Get(), 1);
        EXPECT_EQ(WhenAny(inner), 0U);
        registered->Open();
        mayEnd->Wait();
    });
    registered->Wait();
    EXPECT_EQ(notifier->Calls(), 0);
    job.Cancel();
    EXPECT_EQ(notifier->Calls(), 1);
    mayEnd->Open();
}

TEST_F(NotifierOfARun, IsToldAfterTheWaitOfARequestThatCameMeanwhile) {
    const auto begun = std::make_shared<Gate>();
    const auto notifier = std::make_shared<CountingNotifier>();
    int callsInTheWait = -1;
    int callsAfterIt = -1;
    auto sleeper = RunSleeper();
    auto job = Run(L"waits", [&, begun] {
        GetCancellationObject()->RegisterNotifier(notifier);
        begun->Open();
        EXPECT_THROW(sleeper.Wait(), CancelRequestedException);
        callsAfterIt = notifier->Calls();
    });
    begun->Wait();
    EXPECT_FALSE(job.WaitFor(30ms));
    callsInTheWait = notifier->Calls();
    job.Cancel();
    job.Wait();
    EXPECT_EQ(callsInTheWait, 0);
    EXPECT_EQ(callsAfterIt, 1);
}

TEST_F(NotifierOfARun, StaysForTheDestructorOfAJob) {
    const auto begun = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    const auto notifier = std::make_shared<CountingNotifier>();
    auto job = Run(L"drops", [=] {
        GetCancellationObject()->RegisterNotifier(notifier);
        const auto held = RunHeld(mayEnd);
        begun->Open();
    });
    begun->Wait();
    EXPECT_FALSE(job.WaitFor(30ms));
    job.Cancel();
    EXPECT_EQ(notifier->Calls(), 1);
    EXPECT_FALSE(job.WaitFor(30ms));
    mayEnd->Open();
    job.Get();  // it returned
}

TEST_F(NotifierOfARun, IsNotTakenByTheStartOfAJob) {
    const auto registered = std::make_shared<Gate>();
    const auto mayEnd = std::make_shared<Gate>();
    const auto notifier = std::make_shared<CountingNotifier>();
    auto job = Run(L"starts", [=] {
        GetCancellationObject()->RegisterNotifier(notifier);
        std::vector<Job<void>> many;
        for (int i = 0; i < 20; ++i) {  // the pool grows
            many.push_back(RunHeld(mayEnd));
        }
        registered->Open();
        mayEnd->Wait();
    });
    registered->Wait();
    job.Cancel();
    EXPECT_EQ(notifier->Calls(), 1);
    mayEnd->Open();
}

TEST_F(NotifierOfARun, ASleepAfterAnInterruptedWaitLeavesAtOnce) {
    const auto begun = std::make_shared<Gate>();
    auto sleeper = RunSleeper();
    auto job = Run(L"waits", [&, begun] {
        begun->Open();
        EXPECT_THROW(sleeper.Wait(), CancelRequestedException);
        SleepUntilAsked();
    });
    begun->Wait();
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
}

}  // namespace
