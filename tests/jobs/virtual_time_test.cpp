// Jobs in the tests of users: one at a time, in a fixed order, in virtual time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/testing.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;
using namespace Zarvo::Test;
using Orvane::Testing::VirtualTime;

class VirtualTimeTest : public JobTest {
  protected:
    void Note(const char* what) { m_log += what; }
    std::string m_log;
};

TEST_F(VirtualTimeTest, SleepOfAnHourIsOverAtOnce) {
    VirtualTime time;
    Job<int> slow = Run(L"Slow", [] {
        CancellableSleep(3'600'000);
        return 42;
    });
    EXPECT_EQ(slow.Get(), 42);
    EXPECT_EQ(time.Elapsed(), 1h);
}

TEST_F(VirtualTimeTest, JobBeginsWhenTheTestWaits) {
    VirtualTime time;
    Job<void> job = Run(L"Job", [this] { Note("j"); });
    Note("t");
    job.Wait();
    EXPECT_EQ(m_log, "tj");
}

TEST_F(VirtualTimeTest, JobsBeginInTheOrderOfTheirStarts) {
    VirtualTime time;
    Job<void> first = Run(L"1", [this] { Note("1"); });
    Job<void> second = RunInNewThread(L"2", [this] { Note("2"); });
    Job<void> third = Run(L"3", [this] { Note("3"); });
    WhenAll(third, second, first);
    EXPECT_EQ(m_log, "123");
}

TEST_F(VirtualTimeTest, SleepsEndInTheOrderOfTheirTimes) {
    VirtualTime time;
    const auto sleep = [this](DWORD milliseconds, const char* name) {
        CancellableSleep(milliseconds);
        Note(name);
    };
    Job<void> late = Run(L"late", sleep, 10, "10 ");
    Job<void> early = Run(L"early", sleep, 5, "5 ");
    WhenAll(late, early);
    EXPECT_EQ(m_log, "5 10 ");
    EXPECT_EQ(time.Elapsed(), 10ms);
}

TEST_F(VirtualTimeTest, WaitWithATimeOutEndsAtItsTime) {
    VirtualTime time;
    Job<void> job = Run(L"Job", [] { CancellableSleep(60); });
    EXPECT_FALSE(job.WaitFor(59ms));
    EXPECT_EQ(time.Elapsed(), 59ms);
    EXPECT_TRUE(job.WaitUntil(std::chrono::system_clock::now() + 1h));
    EXPECT_EQ(time.Elapsed(), 60ms);
}

TEST_F(VirtualTimeTest, LimitComesAtItsTime) {
    VirtualTime time;
    Job<void> job = Run(L"Job", [] { CancellableSleep(INFINITE); });
    job.CancelAfter(24h);
    EXPECT_THROW(job.Get(), TimeLimitException);
    EXPECT_EQ(time.Elapsed(), 24h);
}

TEST_F(VirtualTimeTest, LimitOfAnEndedJobMovesNoTime) {
    VirtualTime time;
    Job<void> job = Run(L"Job", [] {});
    job.CancelAfter(24h);
    job.Get();
    EXPECT_THROW(Run(L"Other", [] { CancellableSleep(INFINITE); }).Get(), std::logic_error);
    EXPECT_EQ(time.Elapsed(), 0s);
}

TEST_F(VirtualTimeTest, ScheduleRunsAtItsTimes) {
    VirtualTime time;
    std::vector<std::chrono::nanoseconds> runs;
    JobGroup group(L"Group");
    group.Schedule(L"Beat", 1s, 10s, [&] { runs.push_back(time.Elapsed()); });
    time.Advance(25s);
    EXPECT_EQ(runs, (std::vector<std::chrono::nanoseconds>{1s, 11s, 21s}));
}

TEST_F(VirtualTimeTest, ScheduleOnceRunsOnce) {
    VirtualTime time;
    JobGroup group(L"Group");
    group.Schedule(L"Once", 5s, 0s, [this] { Note("x"); });
    group.Wait();
    time.Advance(1h);
    EXPECT_EQ(m_log, "x");
}

TEST_F(VirtualTimeTest, GroupKeepsItsBound) {
    VirtualTime time;
    JobGroup group(L"Group", 2);
    for (int i = 0; i < 6; ++i) {
        group.Run(L"Item", [] { CancellableSleep(100); });
    }
    group.Wait();
    EXPECT_EQ(time.Elapsed(), 300ms);
}

TEST_F(VirtualTimeTest, LoopRunsInIt) {
    VirtualTime time;
    std::vector<int> items(8);
    ForEach(L"Item", items, [](int&) { CancellableSleep(100); }, 4);
    EXPECT_EQ(time.Elapsed(), 200ms);
}

TEST_F(VirtualTimeTest, WaitThatNothingCanEndThrowsInTheTest) {
    VirtualTime time;
    Job<void> stuck = Run(L"Stuck", [] { CancellableSleep(INFINITE); });
    EXPECT_THROW(stuck.Wait(), std::logic_error);
    stuck.Cancel();
    EXPECT_THROW(stuck.Get(), CancelledException);
}

TEST_F(VirtualTimeTest, RunUntilIdleLetsNoTimePass) {
    VirtualTime time;
    Job<void> job = Run(L"Job", [this] {
        Note("a");
        CancellableSleep(1);
        Note("b");
    });
    time.RunUntilIdle();
    EXPECT_EQ(m_log, "a");
    EXPECT_EQ(time.Elapsed(), 0s);
}

TEST_F(VirtualTimeTest, EndRunsWhatIsLeft) {
    {
        VirtualTime time;
        Post(L"Left", [this] {
            CancellableSleep(1000);
            Note("left");
        });
    }
    EXPECT_EQ(m_log, "left");
}

TEST_F(VirtualTimeTest, EndAsksWhatWouldWaitForEver) {
    {
        VirtualTime time;
        Post(L"Left", [this] {
            try {
                CancellableSleep(INFINITE);
            } catch (const CancelRequestedException&) {
                Note("asked");
                throw;
            }
        });
    }
    EXPECT_EQ(m_log, "asked");
}

TEST_F(VirtualTimeTest, ThreadHasOneAtATime) {
    VirtualTime time;
    EXPECT_THROW(VirtualTime(), std::logic_error);
}

TEST_F(VirtualTimeTest, JobsStartedByJobsRunInIt) {
    VirtualTime time;
    Job<int> outer = Run(L"Outer", [] {
        return Run(L"Inner",
                   [] {
                       CancellableSleep(7'000);
                       return 7;
                   })
            .Get();
    });
    EXPECT_EQ(outer.Get(), 7);
    EXPECT_EQ(time.Elapsed(), 7s);
}

TEST_F(VirtualTimeTest, OtherThreadsLiveInRealTime) {
    VirtualTime time;
    Zarvo::Test::Thread other([] { CancellableSleep(1); });
    other.join();
    EXPECT_EQ(time.Elapsed(), 0s);
}

}  // namespace
