// Some of everything, which must end as it should whatever the machine does meanwhile.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <numeric>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

inline void ExpectJobsToEnd() {
    constexpr int kJobs = 40;
    std::vector<Orvane::Job<int>> jobs;
    for (int i = 0; i < kJobs; ++i) {
        jobs.push_back(Orvane::Run(L"parent", [i] { return Orvane::Run(L"child", [i] { return i; }).Get(); }));
    }
    for (int i = 0; i < kJobs; ++i) {
        auto& job = jobs[static_cast<std::size_t>(i)];
        ASSERT_TRUE(job.WaitFor(kPatience));
        EXPECT_EQ(job.Get(), i);
    }
}

inline void ExpectGroupsToEnd() {
    std::atomic<int> ran = 0;
    Orvane::JobGroup group(L"group");
    for (int i = 0; i < 40; ++i) {
        group.Run(L"of a group", [&ran] { ++ran; });
    }
    ASSERT_TRUE(group.WaitFor(kPatience));
    EXPECT_EQ(ran, 40);
    std::vector<int> items(200);
    std::iota(items.begin(), items.end(), 0);
    EXPECT_EQ(Orvane::Map(L"items", items, [](int item) { return item; }), items);
}

inline void ExpectRequestsToArrive() {
    std::vector<Orvane::Job<void>> sleepers;
    for (int i = 0; i < 6; ++i) {
        sleepers.push_back(Orvane::Run(L"sleeper", [] {
            for (;;) {
                Orvane::CancellableSleep(INFINITE);
            }
        }));
    }
    for (auto& sleeper : sleepers) {
        sleeper.Cancel();
        ASSERT_TRUE(sleeper.WaitFor(kPatience));
        EXPECT_THROW(sleeper.Get(), Orvane::CancelledException);
    }
}

inline void ExpectSchedulesToCome() {
    std::atomic<int> beats = 0;
    const Orvane::Tracker beat =
        Orvane::Schedule(L"beat", std::chrono::seconds(0), std::chrono::milliseconds(1), [&beats] { ++beats; });
    EXPECT_TRUE(Eventually([&] { return beats >= 3; }));
}

inline void ExpectTurnsToCome() {
    constexpr int kTurns = 50;
    Orvane::checked_mutex checked;
    Orvane::fifo_mutex fifo;
    int turns = 0;  // under both
    std::list<Orvane::Job<void>> jobs;
    for (int i = 0; i < 3; ++i) {
        jobs.push_back(Orvane::Run(L"takes turns", [&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                fifo.lock();
                checked.lock();
                ++turns;
                checked.unlock();
                fifo.unlock();
            }
        }));
    }
    for (const auto& job : jobs) {
        ASSERT_TRUE(job.WaitFor(kPatience));
    }
    EXPECT_EQ(turns, 3 * kTurns);
}

// Within a lifetime.
inline void ExpectAMixedLoadToEnd() {
    ExpectJobsToEnd();
    ExpectGroupsToEnd();
    ExpectRequestsToArrive();
    ExpectSchedulesToCome();
    ExpectTurnsToCome();
}

}  // namespace Zarvo::Test
