// The scheduler's queue, its thread, and the trackers of what is scheduled.

#include <chrono>

#include "concurrency/scheduler/schedule.h"
#include "concurrency/scheduler/scheduled_task_queue.h"
#include "concurrency/scheduler/tracker.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Tracker;
using Orvane::Internal::ScheduledTask;
using Orvane::Internal::ScheduledTaskQueue;
using Orvane::Internal::Task;
using Schedules::Check;
using Schedules::Party;

Orvane::TimePoint In(std::chrono::milliseconds delay) {
    return std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now()) + delay;
}

constexpr std::chrono::milliseconds kNow{0};

// What the scheduler's thread does with its queue.
void Serve(ScheduledTaskQueue& queue, int& served) {
    for (;;) {
        ScheduledTask due;
        if (queue.PopExpired(due)) {
            ++served;
            due.GetTask()();
        } else if (!queue.WaitForNextStart()) {
            return;
        }
    }
}

// A tracked task whose every run goes through its tracker, as Schedule() makes them.
Task Track(Tracker& tracker, Orvane::Internal::TrackerImpl& impl, std::function<void()> work) {
    auto task = MakeTask(L"Tracked", [&impl, work = std::move(work)] { impl.UpdateWrapper(work); });
    tracker.SetTask(ScheduledTask(task, In(kNow), std::chrono::seconds(1)));
    return task;
}

}  // namespace

SCENARIO(ScheduleTakesAnInsertWhileItSleeps) {
    ScheduledTaskQueue queue;
    int served = 0;
    Party thread([&] { Serve(queue, served); });
    auto task = MakeTask(L"Due", [] {});
    queue.Push(ScheduledTask(task, In(kNow), Orvane::Duration::zero()));
    task.Wait();
    queue.Stop();
    thread.Join();
    Check(served == 1, "it was due once");
}

SCENARIO(ScheduleTakesAnEarlierInsert) {
    ScheduledTaskQueue queue;
    int served = 0;
    auto late = MakeTask(L"Late", [] {});
    auto early = MakeTask(L"Early", [] {});
    queue.Push(ScheduledTask(late, In(std::chrono::hours(1)), Orvane::Duration::zero()));
    const auto begin = std::chrono::steady_clock::now();
    Party thread([&] { Serve(queue, served); });
    queue.Push(ScheduledTask(early, In(kNow), Orvane::Duration::zero()));
    early.Wait();
    Check(std::chrono::steady_clock::now() - begin < std::chrono::minutes(1), "it does not wait for the later one");
    late.Cancel();
    queue.Stop();
    thread.Join();
}

SCENARIO(ScheduleStopsAgainstAnInsert) {
    ScheduledTaskQueue queue;
    int served = 0;
    auto task = MakeTask(L"Task", [] {});
    Party thread([&] { Serve(queue, served); });
    Party inserter([&] { queue.Push(ScheduledTask(task, In(kNow), Orvane::Duration::zero())); });
    queue.Stop();
    thread.Join();
    inserter.Join();
    task.Cancel();
}

SCENARIO(TrackerIsDroppedBeforeBesideAndAfterARun) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto impl = std::make_shared<Orvane::Internal::TrackerImpl>();
    auto& plain = *impl;
    std::atomic<int> alive = 1;
    auto task = MakeTask(L"Tracked", [&plain, &alive] {
        plain.UpdateWrapper(std::function<void()>([] {}));
        Check(alive == 1, "a run ends before its tracker, also when it has reset the task");
    });
    impl->SetTask(ScheduledTask(task, In(kNow), std::chrono::seconds(1)));
    Party run([task]() mutable { task(); });
    impl.reset();
    alive = 0;
    task = Task();
    run.Join();
}

SCENARIO(TrackerOfOneRunIsDropped) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto impl = std::make_shared<Orvane::Internal::TrackerImpl>();
    auto& plain = *impl;
    auto task = MakeTask(L"Tracked", [&plain] { plain.UpdateWrapper(std::function<void()>([] {})); });
    impl->SetTask(ScheduledTask(task, In(kNow), Orvane::Duration::zero()));
    Party run([task]() mutable { task(); });
    impl.reset();
    run.Join();
}

SCENARIO(TrackerIsCancelledByItsRunAndDropped) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto impl = std::make_shared<Orvane::Internal::TrackerImpl>();
    auto& plain = *impl;
    auto task =
        MakeTask(L"Tracked", [&plain] { plain.UpdateWrapper(std::function<void()>([&plain] { plain.Cancel(); })); });
    impl->SetTask(ScheduledTask(task, In(kNow), std::chrono::seconds(1)));
    Party run([task]() mutable { task(); });
    impl.reset();
    run.Join();
}

SCENARIO(TrackerIsWaitedForByTwo) {
    const Orvane::ConcurrencyLifetime lifetime;
    Tracker tracker;
    auto impl = std::make_shared<Orvane::Internal::TrackerImpl>();
    auto task = Track(tracker, *impl, [] {});
    impl->SetTask(ScheduledTask(task, In(kNow), std::chrono::seconds(1)));
    Party run([task]() mutable { task(); });
    Party waiter([tracker]() mutable { tracker.Wait(); });
    tracker.Cancel();
    tracker.Wait();
    waiter.Join();
    run.Join();
}

SCENARIO(SchedulerRunsAndIsTornDown, {.delays = true}) {
    int runs = 0;
    {
        const Orvane::ConcurrencyLifetime lifetime;
        Tracker tracker = Orvane::Schedule(L"Beat", kNow, std::chrono::seconds(10), [&runs] { ++runs; });
        std::this_thread::sleep_for(std::chrono::seconds(15));
    }
    Check(runs == 2, "it ran at once and after its interval");
}

// The run is busy when its next start comes, and so it is when the scheduler stops.
SCENARIO(SchedulerIsTornDownDuringAnOverrun, {.delays = true}) {
    Tracker tracker;
    const Orvane::ConcurrencyLifetime lifetime;
    tracker = Orvane::Schedule(L"Long", kNow, std::chrono::milliseconds(10), [] { Orvane::CancellableSleep(25); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}
