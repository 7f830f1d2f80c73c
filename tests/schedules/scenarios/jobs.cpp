// Jobs and groups.

#include <chrono>
#include <stdexcept>

#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::JobGroup;
using Schedules::Check;
using Schedules::Party;

}  // namespace

SCENARIO(JobHandsItsResultOver, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto job = Orvane::Run(L"Job", [] { return 42; });
    Check(job.Get() == 42, "its result");
}

SCENARIO(JobIsCancelledAndDropped, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto job = Orvane::Run(L"Job", [] { Orvane::CancellableSleep(INFINITE); });
    job.Cancel();
}

SCENARIO(JobIsDroppedWhileAnotherThreadAsksIt, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::stop_source stop;
    auto job = Orvane::Run(L"Job", stop.get_token(), [] { Orvane::CancellableSleep(INFINITE); });
    Party requester([&] { stop.request_stop(); });
    {
        const auto dropped = std::move(job);
    }
}

SCENARIO(JobOfAJobIsAskedWithIt, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto outer = Orvane::Run(L"Outer", [] {
        auto inner = Orvane::Run(L"Inner", [] { Orvane::CancellableSleep(INFINITE); });
        inner.Get();
    });
    outer.Cancel();
}

SCENARIO(GroupRunsOneAtATime, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    int inside = 0;
    int runs = 0;
    {
        JobGroup group(L"Group", 1);
        for (int i = 0; i < 2; ++i) {
            group.Run(L"Job", [&] {
                Check(++inside == 1, "one at a time");
                ++runs;
                --inside;
            });
        }
        group.Wait();
    }
    Check(runs == 2, "both have run");
}

SCENARIO(GroupIsCancelledWhileItRuns, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    JobGroup group(L"Group", 1);
    group.Run(L"First", [] { Orvane::CancellableSleep(INFINITE); });
    group.Run(L"Second", [] { Orvane::CancellableSleep(INFINITE); });
    Party requester([&] { group.Cancel(); });
    try {
        group.Wait();
    } catch (const std::exception&) {
    }
    requester.Join();
}

SCENARIO(GroupIsDroppedAfterItsFirstFailure, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    bool hasFailed = false;
    {
        JobGroup group(L"Group", 2);
        group.Run(L"Fails", [] { throw std::runtime_error("first"); });
        group.Run(L"Waits", [] { Orvane::CancellableSleep(INFINITE); });
        try {
            group.Wait();
        } catch (const std::exception&) {
            hasFailed = true;
        }
    }
    Check(hasFailed, "the failure comes out of the wait");
}

SCENARIO(GroupIsLeftWhileItRuns, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    JobGroup group(L"Group", 1);
    group.Run(L"First", [] { Orvane::CancellableSleep(INFINITE); });
    group.Run(L"Second", [] {});
    Check(group.Leave().IsNone(), "nothing is held of a group that was left");
}
