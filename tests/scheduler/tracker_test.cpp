#include "concurrency/scheduler/tracker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"

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
    Tracker third;
    third = first;
    const ScheduledTask task = Idle();
    const ScheduledTask other = Idle();

    first.SetTask(task);
    second.Cancel();
    EXPECT_TRUE(task.IsCancelled());
    first.SetTask(other);
    third.Cancel();
    EXPECT_TRUE(other.IsCancelled());
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

}  // namespace
