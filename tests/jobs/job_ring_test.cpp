// Jobs that wait for each other in a ring.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Jobs that each wait for the next one, and the last one for the first.
class RingOfJobs : public JobTest {
  protected:
    template <typename Wait>
    std::vector<std::string> Close(const std::vector<const wchar_t*>& names, Wait wait) {
        std::vector<Job<int>> jobs(names.size());
        std::vector<std::string> errors(names.size());
        Gate isComplete;
        for (std::size_t i = 0; i < names.size(); ++i) {
            jobs[i] = RunInNewThread(names[i], [&, i, wait] {
                isComplete.Wait();
                try {
                    wait(jobs[(i + 1) % jobs.size()]);
                } catch (const std::system_error& error) {
                    EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
                    errors[i] = error.what();
                }
                return 1;
            });
        }
        isComplete.Open();
        for (const auto& job : jobs) {
            job.Wait();
        }
        std::erase(errors, std::string());
        return errors;
    }

    static constexpr auto kWait = [](Job<int>& job) { job.Wait(); };
};

TEST_F(RingOfJobs, OfOneIsRefusedWithItsName) {
    const auto errors = Close({L"itself"}, kWait);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_NE(errors[0].find("itself"), std::string::npos) << errors[0];
}

TEST_F(RingOfJobs, OfTwoIsRefusedOnceWithBothNames) {
    const auto errors = Close({L"chicken", L"egg"}, kWait);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_NE(errors[0].find("chicken"), std::string::npos) << errors[0];
    EXPECT_NE(errors[0].find("egg"), std::string::npos) << errors[0];
}

TEST_F(RingOfJobs, OfThreeIsRefusedOnceWithAllNames) {
    const auto errors = Close({L"stone", L"paper", L"scissors"}, [](Job<int>& job) { WhenAll(job); });
    ASSERT_EQ(errors.size(), 1U);
    for (const char* const name : {"stone", "paper", "scissors"}) {
        EXPECT_NE(errors[0].find(name), std::string::npos) << errors[0];
    }
}

TEST_F(RingOfJobs, OfGetIsRefusedAndLeavesTheResult) {
    Job<int> job;
    Gate isKnown;
    job = Run(L"itself", [&] {
        isKnown.Wait();
        EXPECT_THROW(job.Get(), std::system_error);
        return 7;
    });
    isKnown.Open();
    EXPECT_EQ(job.Get(), 7);
}

TEST_F(RingOfJobs, IsNoneWhereAWaitHasALimit) {
    std::atomic<int> timeOuts = 0;
    const auto errors =
        Close({L"chicken", L"egg"}, [&timeOuts](Job<int>& job) { timeOuts += job.WaitFor(20ms) ? 0 : 1; });
    EXPECT_EQ(errors.size(), 0U);
    EXPECT_GE(timeOuts, 1);
}

// The other one waits without a limit, and is there first.
TEST_F(RingOfJobs, IsNoneWhereTheWaitThatClosesItHasALimit) {
    Job<void> endless;
    Job<void> limited;
    Gate isKnown;
    endless = RunInNewThread(L"endless", [&] {
        isKnown.Wait();
        limited.Wait();
    });
    limited = RunInNewThread(L"limited", [&] {
        isKnown.Wait();
        for (int i = 0; i < 20; ++i) {
            EXPECT_FALSE(endless.WaitFor(5ms));
        }
    });
    isKnown.Open();
    limited.Get();
    endless.Get();
}

TEST_F(RingOfJobs, IsNoneWhereAnyOtherMayEnd) {
    Job<void> first;
    Job<void> second;
    const auto other = RunSleeper(L"other");
    Gate isKnown;
    first = RunInNewThread(L"first", [&] {
        isKnown.Wait();
        EXPECT_NO_THROW(WhenAny(second, other));
    });
    second = RunInNewThread(L"second", [&] {
        isKnown.Wait();
        EXPECT_NO_THROW(first.Wait());
    });
    isKnown.Open();
    Sleep(30);
    EXPECT_FALSE(second.IsReady());
    other.Cancel();
    first.Get();
    second.Get();
}

TEST_F(RingOfJobs, IsNoneWhereAWaiterWasAsked) {
    Job<void> first;
    Job<void> second;
    Gate isKnown;
    Gate waits;
    first = RunInNewThread(L"first", [&] {
        isKnown.Wait();
        second.Wait();
    });
    second = RunInNewThread(L"second", [&] {
        isKnown.Wait();
        Sleep(30);
        first.Cancel();
        first.Wait();
    });
    isKnown.Open();
    second.Get();
    EXPECT_THROW(first.Get(), CancelledException);
}

// Each drops the other's handle: neither hears a request any more.
TEST_F(RingOfJobs, ThroughDestructorsIsOpenedAndReported) {
    const RecordedReports reports;
    Job<void> left;
    Job<void> right;
    Gate isKnown;
    Countdown begun(2);  // a job that has not would not run
    const auto dropped = std::make_shared<Countdown>(2);  // one of the two goes on without a handle
    left = RunInNewThread(L"left", [&, dropped] {
        begun.Arrive();
        isKnown.Wait();
        right = {};
        dropped->Arrive();
    });
    right = RunInNewThread(L"right", [&, dropped] {
        begun.Arrive();
        isKnown.Wait();
        left = {};
        dropped->Arrive();
    });
    begun.Wait();
    isKnown.Open();
    dropped->Wait();
    EXPECT_EQ(reports.Count(L"Concurrency.Job", L"A dropped job is not waited for, it would wait for itself: %s"), 1U);
}

TEST_F(RingOfJobs, ThroughADestructorAndAWaitEndsByTheRequest) {
    Job<void> waits;
    Job<void> drops;
    Gate isKnown;
    drops = RunInNewThread(L"drops", [&] {
        isKnown.Wait();
        Sleep(30);
        waits = {};
    });
    waits = RunInNewThread(L"waits", [&] {
        isKnown.Wait();
        drops.Wait();
    });
    isKnown.Open();
    drops.Get();
}

}  // namespace
