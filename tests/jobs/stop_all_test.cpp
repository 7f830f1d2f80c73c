// StopAll().
#include "concurrency/jobs/stop_all.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/jobs/this_job.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/on_request.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr auto kLong = 60s;  // that no test waits for

class StopAllOf : public JobTest {};

TEST_F(StopAllOf, AJobMakesItLeaveAndSaysWhy) {
    auto job = RunSleeper();
    EXPECT_TRUE(StopAll(kLong, L"Ctrl+C").empty());
    EXPECT_TRUE(job.IsReady());
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Stop);
    EXPECT_EQ(ToText(job.GetCancelReason()), L"asked by Ctrl+C");
}

TEST_F(StopAllOf, AGroupEndsItsJobsItsScheduleAndTheGroup) {
    JobGroup group(L"Import", 1);
    std::atomic<int> runs = 0;
    auto running = group.Run(L"running", [] { SleepUntilAsked(); });
    auto waiting = group.Run(L"waiting", [&runs] { ++runs; });
    group.Schedule(L"often", 1h, 1h, [&runs] { ++runs; });
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    EXPECT_THROW(group.Wait(), CancelledException);
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Stop);
    EXPECT_EQ(runs, 0);
}

TEST_F(StopAllOf, ATrackerCancelsItsTaskAndItsSchedule) {
    Gate begun;
    std::atomic<int> runs = 0;
    Tracker often = Schedule(L"often", 0ms, 1ms, [&] {
        ++runs;
        begun.Open();
        SleepUntilAsked();
    });
    const Tracker later = Schedule(L"later", 1h, 1h, [&runs] { ++runs; });
    begun.Wait();
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    often.Wait();
    EXPECT_EQ(runs, 1);
}

TEST_F(StopAllOf, WhatIsLateNamesItAndSaysSoInTheLog) {
    const RecordedReports reports;
    const auto mayEnd = std::make_shared<Gate>();
    JobGroup group(L"Import");
    auto begun = std::make_shared<Gate>();
    auto job = group.Run(L"Fetch 17", [begun, mayEnd] {
        begun->Open();
        mayEnd->Wait();
    });
    begun->Wait();
    const auto late = StopAll(20ms, L"Ctrl+C");
    mayEnd->Open();
    ASSERT_EQ(late.size(), 1U);
    EXPECT_EQ(late.front().path, L"Import > Fetch 17");
    EXPECT_EQ(ToText(late.front().reason), L"asked by Ctrl+C");
    const auto said = reports.Matching(L"Concurrency.Job", L"StopAll() waits no longer for %s");
    ASSERT_EQ(said.size(), 1U);
    EXPECT_EQ(said.front().text, L"StopAll() waits no longer for " + ToText(late.front()));
}

TEST_F(StopAllOf, ATrackersTaskThatIsLateKnowsTheReason) {
    Gate begun;
    Gate mayEnd;
    const Tracker tracker = Schedule(L"deaf", 0ms, 0ms, [&] {
        begun.Open();
        mayEnd.Wait();
    });
    begun.Wait();
    const auto late = StopAll(0ms, L"Ctrl+C");
    mayEnd.Open();
    ASSERT_EQ(late.size(), 1U);
    EXPECT_EQ(late.front().path, L"deaf");
    EXPECT_EQ(ToText(late.front().reason), L"asked by Ctrl+C");
}

TEST_F(StopAllOf, NothingReturnsAtOnce) {
    const Testing::VirtualTime time;
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    EXPECT_TRUE(StopAll(kLong, nullptr).empty());
    EXPECT_EQ(time.Elapsed(), 0s);
}

TEST_F(StopAllOf, ATaskWithoutATrackerLeavesItAlone) {
    Gate begun;
    Gate mayEnd;
    Internal::Task task = MakeTask(L"stated", [&] {
        begun.Open();
        mayEnd.Wait();
    });
    Internal::GlobalThreadPool::Queue(task);
    begun.Wait();
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    EXPECT_FALSE(task.IsCancelled());
    mayEnd.Open();
    task.Wait();
}

TEST_F(StopAllOf, AJobInsideItselfAsksItButDoesNotWaitForIt) {
    auto job = Run(L"self", [] { return StopAll(kLong, L"itself").empty() && IsCancellationRequested(); });
    EXPECT_TRUE(job.Get());
}

TEST_F(StopAllOf, AJobThatOwnsTheCallerIsNotWaitedFor) {
    auto outer = Run(L"outer", [] {
        auto middle = Orvane::Run(L"middle", [] {
            JobGroup group(L"group");
            std::atomic<bool> isEmpty = false;
            group.Run(L"inner", [&isEmpty] { isEmpty = StopAll(kLong, L"a child").empty(); });
            // Its end waits for the child, whether this run is asked or not.
            while (!isEmpty) {
                Sleep(1);
            }
            return isEmpty.load();
        });
        while (!middle.IsReady()) {
            Sleep(1);
        }
        return true;
    });
    EXPECT_TRUE(Eventually([&outer] { return outer.IsReady(); }));
    EXPECT_TRUE(outer.Get());
}

TEST_F(StopAllOf, WhatWasStoppedKeepsTheFirstReason) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    EXPECT_EQ(StopAll(0ms, L"the first").size(), 1U);
    EXPECT_EQ(StopAll(0ms, L"the second").size(), 1U);
    EXPECT_EQ(job.GetCancelReason().by, L"the first");
    mayEnd->Open();
}

TEST_F(StopAllOf, WhatARunStartsMeanwhileIsBornAsked) {
    Gate begun;
    auto job = Run(L"parent", [&begun] {
        begun.Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            auto child = Orvane::Run(L"child", [] { return 1; });
            EXPECT_THROW(child.Get(), std::exception);
            EXPECT_EQ(child.GetCancelReason().cause, CancelCause::Parent);
            throw;
        }
    });
    begun.Wait();
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
}

TEST_F(StopAllOf, WhatOthersStartAfterwardsRuns) {
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    auto job = Run(L"later", [] { return 1; });
    EXPECT_EQ(job.Get(), 1);
}

// Each job says when a request comes to it.
class Requests {
  public:
    Job<void> RunOne(int number) {
        const auto begun = std::make_shared<Gate>();
        auto job = Orvane::Run(L"numbered", [this, begun, number] {
            const auto isAsked = std::make_shared<Gate>();
            const OnRequest watched([this, isAsked, number] {
                const std::lock_guard own(m_mutex);
                m_order.push_back(number);
                isAsked->Open();
            });
            begun->Open();
            isAsked->Wait();
        });
        begun->Wait();
        return job;
    }
    std::vector<int> Order() {
        const std::lock_guard own(m_mutex);
        return m_order;
    }

  private:
    std::mutex m_mutex;
    std::vector<int> m_order;
};

TEST_F(StopAllOf, ManyJobsAsksTheNewestFirst) {
    Requests requests;
    std::vector<Job<void>> jobs;
    for (int i = 0; i < 5; ++i) {
        jobs.push_back(requests.RunOne(i));
        const auto tick = GetTickCount64();
        while (GetTickCount64() == tick) {
            Sleep(1);  // the order is that of the clock's steps
        }
    }
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
    EXPECT_EQ(requests.Order(), (std::vector<int>{4, 3, 2, 1, 0}));
}

TEST_F(StopAllOf, JobsInVirtualTimeWaitsInThatTime) {
    Testing::VirtualTime time;
    auto slow = Run(L"slow", [] {
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            auto child = Orvane::Run(L"tidy up", [] {});
            throw;
        }
    });
    time.RunUntilIdle();
    EXPECT_TRUE(StopAll(1s, L"a test").empty());
    EXPECT_TRUE(slow.IsReady());
}

TEST(StopAllWithoutTheLibrary, DoesNothing) {
    EXPECT_TRUE(StopAll(kLong, L"a test").empty());
}

// As a console control handler may come at any moment.
TEST(StopAllBesideTheLastUninitialisation, LeavesBothToTheirEnds) {
    for (int i = 0; i < 20; ++i) {
        auto lifetime = std::make_unique<ConcurrencyLifetime>();
        std::vector<Job<void>> jobs;
        for (int k = 0; k < 4; ++k) {
            jobs.push_back(Orvane::Run(L"sleeper", [] { SleepUntilAsked(); }));
        }
        Thread handler([] { EXPECT_TRUE(StopAll(kLong, L"Ctrl+C").empty()); });
        lifetime.reset();
        handler.join();
        for (const auto& job : jobs) {
            EXPECT_TRUE(job.IsReady());
        }
    }
}

}  // namespace
