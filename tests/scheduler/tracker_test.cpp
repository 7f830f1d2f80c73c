#include "concurrency/scheduler/tracker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/support/child_process.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

ScheduledTask Idle() {
    return ScheduledTask(MakeTask(L"Idle", [] {}), Now() + 1h, kOnce);
}

TEST(Tracker, CancelsAndWaitsForNothingWhenFresh) {
    Tracker tracker;

    tracker.Cancel();
    tracker.Wait();
}

TEST(Tracker, SharesItsTaskWithItsCopies) {
    Tracker first;
    Tracker second(first);
    const ScheduledTask task = Idle();

    first.SetTask(task);
    second.Cancel();

    EXPECT_TRUE(task.IsCancelled());
}

TEST(Tracker, SharesItsTaskWithWhatItIsAssignedTo) {
    Tracker first;
    Tracker second;
    second = first;
    const ScheduledTask task = Idle();

    first.SetTask(task);
    second.Cancel();

    EXPECT_TRUE(task.IsCancelled());
}

TEST(Tracker, IsNoMoreThanASharedPointer) {
    static_assert(sizeof(Tracker) == sizeof(std::shared_ptr<void>));
}

TEST(Tracker, CancelsItsTaskWhenTheLastCopyGoes) {
    const ScheduledTask task = Idle();
    auto first = std::make_unique<Tracker>();
    first->SetTask(task);
    auto second = std::make_unique<Tracker>(*first);

    first.reset();
    EXPECT_FALSE(task.IsCancelled());
    second.reset();
    EXPECT_TRUE(task.IsCancelled());
}

TEST(Tracker, LetsGoOfItsTaskWhenAssigned) {
    const ScheduledTask task = Idle();
    Tracker tracker;
    tracker.SetTask(task);

    tracker = Tracker();

    EXPECT_TRUE(task.IsCancelled());
}

TEST(Tracker, HandsItsTaskOverWhenMoved) {
    const ScheduledTask task = Idle();
    Tracker source;
    source.SetTask(task);

    std::optional<Tracker> target(std::move(source));
    EXPECT_FALSE(task.IsCancelled());
    target.reset();

    EXPECT_TRUE(task.IsCancelled()) << "its source still tracks it";
}

TEST(Tracker, HandsItsTaskOverWhenMoveAssigned) {
    const ScheduledTask task = Idle();
    Tracker source;
    source.SetTask(task);
    std::optional<Tracker> target(std::in_place);

    *target = std::move(source);
    EXPECT_FALSE(task.IsCancelled());
    target.reset();

    EXPECT_TRUE(task.IsCancelled()) << "its source still tracks it";
}

TEST(Tracker, StopsARecurrentTaskWhenItIsDroppedBetweenRuns) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    {
        const Tracker tracker = Schedule(L"Between", 0s, 5ms, [&runs] { ++runs; });
        ASSERT_TRUE(Eventually([&] { return runs >= 3; }));
    }
    const int atTheEnd = runs;

    std::this_thread::sleep_for(50ms);  // to show that nothing happens

    EXPECT_EQ(runs, atTheEnd);
}

TEST(Tracker, WaitsForTheRunThatIsUnderWayWhenItIsDropped) {
    const ConcurrencyLifetime lifetime;
    for (int round = 0; round < 20; ++round) {
        Gate running;
        std::atomic<bool> ended = false;
        {
            const Tracker tracker = Schedule(L"During", 0s, 1s, [&] {
                running.Open();
                try {
                    CancellableSleep(kForever);
                } catch (const CancelRequestedException&) {
                    ended = true;
                    throw;
                }
            });
            running.Wait();
        }
        EXPECT_TRUE(ended);
    }
}

TEST(Tracker, EndsTheProcessWhenItIsDroppedInsideItsOwnRun) {
    const ChildResult child = RunChild("tracker_test_child");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_NE(child.standardOutput.find("dropping"), std::string::npos);
    EXPECT_EQ(child.standardOutput.find("survived"), std::string::npos);
}

}  // namespace
