// The order of the fields, which is part of the interface, and the counters that nothing else shows.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/scheduler/tracker.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Work = std::function<void()>;

// As the interface states them.
struct ScheduledFields {
    std::array<void*, 2> task;
    std::int64_t start;
    std::int64_t interval;
};

struct TrackerFields {
    ScheduledFields scheduled;
    bool isTaskSet;
    std::uint32_t runsStarted;
    std::uint32_t runsFinished;
};

template <typename Fields, typename Object>
Fields Look(const Object& object) {
    static_assert(sizeof(Fields) == sizeof(Object));
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&object), sizeof fields);
    return fields;
}

ScheduledFields Look(const ScheduledTask& task) {
    return Look<ScheduledFields>(task);
}

TrackerFields Look(const TrackerImpl& tracker) {
    return Look<TrackerFields>(tracker);
}

ScheduledTask Timed() {
    return ScheduledTask(MakeTask(L"Timed", [] {}), TimePoint(Duration(77)), Duration(7));
}

TEST(ScheduledTaskLayout, IsTheTaskThenTheStartThenTheInterval) {
    const ScheduledFields fields = Look(Timed());

    EXPECT_NE(fields.task, Look(ScheduledTask()).task);
    EXPECT_EQ(fields.start, 77);
    EXPECT_EQ(fields.interval, 7);
}

TEST(ScheduledTaskLayout, KeepsTheTimesWhenMovedFrom) {
    ScheduledTask source = Timed();
    ScheduledTask other = Timed();
    ScheduledTask target(std::move(source));
    target = std::move(other);

    for (const ScheduledTask* each :
         {&source, &other, &target}) {  // NOLINT(bugprone-use-after-move): part of the interface
        EXPECT_EQ(Look(*each).start, 77);
        EXPECT_EQ(Look(*each).interval, 7);
    }
}

TEST(TrackerLayout, IsASharedPointer) {
    static_assert(sizeof(Tracker) == sizeof(std::shared_ptr<void>));
}

TEST(TrackerImplLayout, IsAScheduledTaskThenTheFlagThenTheCounters) {
    TrackerImpl tracker;
    const TrackerFields unset = Look(tracker);
    EXPECT_EQ(unset.scheduled.start, 0);
    EXPECT_EQ(unset.scheduled.interval, 0);
    EXPECT_FALSE(unset.isTaskSet);
    EXPECT_EQ(unset.runsStarted, 0U);
    EXPECT_EQ(unset.runsFinished, 0U);

    tracker.UpdateWrapper(Work([] {}));
    EXPECT_THROW(tracker.UpdateWrapper(Work([] { throw 1; })), int);
    tracker.SetTask(Timed());

    const TrackerImpl copy(tracker);
    TrackerImpl assigned;
    assigned = tracker;
    for (const TrackerImpl* each : {&tracker, const_cast<TrackerImpl*>(&copy), &assigned}) {
        const TrackerFields fields = Look(*each);
        EXPECT_EQ(fields.scheduled.task, Look(tracker).scheduled.task);
        EXPECT_EQ(fields.scheduled.start, 77);
        EXPECT_EQ(fields.scheduled.interval, 7);
        EXPECT_TRUE(fields.isTaskSet);
        EXPECT_EQ(fields.runsStarted, 2U);
        EXPECT_EQ(fields.runsFinished, 1U) << "of the run that threw, only the start counts";
    }
}

}  // namespace
