// Schedules of a group: dropped, ended and waited for in each phase.

#include <chrono>

#include "concurrency/jobs/job_group.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::JobGroup;
using Schedules::Check;
using Schedules::Party;

constexpr std::chrono::milliseconds kNow{0};
constexpr std::chrono::seconds kBeat{10};

}  // namespace

SCENARIO(GroupIsDroppedWithASchedule, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto value = std::make_shared<int>(0);
    const std::weak_ptr<int> seen = value;
    {
        JobGroup group(L"Group", 1);
        group.Schedule(L"Beat", kNow, kBeat, [value = std::move(value)] { ++*value; });
    }
    Check(seen.expired(), "the callable goes with the group, before, beside and after its run");
}

SCENARIO(GroupWaitsForAScheduleOfOneRun, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    int runs = 0;
    JobGroup group(L"Group", 1);
    group.Schedule(L"Once", kNow, std::chrono::seconds(0), [&runs] { ++runs; });
    group.Wait();
    Check(runs == 1, "the wait ends with the run");
}

SCENARIO(GroupIsCancelledAgainstARunOfItsSchedule, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    JobGroup group(L"Group", 1);
    group.Schedule(L"Beat", kNow, kBeat, [] { Orvane::CancellableSleep(INFINITE); });
    Party requester([&group] { group.Cancel(); });
    try {
        group.Wait();
    } catch (const std::exception&) {
    }
    requester.Join();
    Check(group.Counts().running == 0 && group.Counts().waiting == 0, "no run is left after the wait");
}

// Nothing but the end of the schedule ends the wait.
SCENARIO(GroupIsCancelledBeforeItsScheduleIsDue, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    JobGroup group(L"Group", 1);
    group.Schedule(L"Late", std::chrono::hours(1), kBeat, [] {});
    Party requester([&group] { group.Cancel(); });
    try {
        group.Wait();
    } catch (const std::exception&) {
    }
    requester.Join();
    Check(Schedules::Now() < 60'000 * Schedules::kMillisecond, "the wait ends with the request");
}

// The second run is due while the first one sleeps.
SCENARIO(GroupIsLeftDuringAnOverrunOfItsSchedule, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    int inside = 0;
    JobGroup group(L"Group", 2);
    group.Schedule(L"Long", kNow, std::chrono::milliseconds(10), [&inside] {
        Check(++inside == 1, "one run at a time");
        Orvane::CancellableSleep(15);
        --inside;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(12));
    Check(group.Leave().IsNone(), "nothing is held of a group that was left");
}
