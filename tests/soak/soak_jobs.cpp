// Jobs, groups, schedules and locks.
#include <chrono>
#include <cstddef>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "concurrency/figures/figures.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/soak/soak_work.h"
#include "tests/support/gate.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

namespace {

using namespace std::chrono_literals;

constexpr int kBatch = 32;
constexpr std::size_t kInNewThread = 2;  // of the ways below

// A job that says when it began, and then ends in one of the ways there are.
Orvane::Job<int> StartTimed(SoakScene& scene, std::size_t way) {
    SoakTally* const tally = &scene.tally;
    const auto work = [tally, way, queued = Stopwatch()] {
        (way == kInNewThread ? tally->launchToStart : tally->queueToStart).Add(queued.Elapsed());
        ++tally->jobs;
        if (way == 0) {
            throw std::runtime_error("as it should");
        }
        if (way == 1) {
            auto child = Orvane::Run(L"child", [tally] { ++tally->jobs; });
            child.Wait();
        }
        return static_cast<int>(way);
    };
    if (way == kInNewThread) {
        return Orvane::RunInNewThread(L"thread", work);
    }
    const Stopwatch call;
    auto job = Orvane::Run(L"job", work);
    scene.tally.runCall.Add(call.Elapsed());
    return job;
}

void CheckEnd(SoakScene& scene, Orvane::Job<int>& job, std::size_t way) {
    const SoakWatch::Wait wait(scene.watch, "the end of a job");
    try {
        if (job.Get() != static_cast<int>(way) || way == 0) {
            scene.tally.Fail("a job has returned what it should not");
        }
    } catch (const std::runtime_error&) {
        if (way != 0) {
            scene.tally.Fail("a job has failed that should not");
        }
    }
}

void RunGroup(SoakScene& scene) {
    const bool fails = Choose(scene.random, 4) == 0;
    std::atomic<int> ran = 0;
    Orvane::JobGroup group(L"group", 1 + Choose(scene.random, 6));
    for (int i = 0; i < kBatch; ++i) {
        group.Run(L"of a group", [&ran, &scene, throws = fails && i == kBatch / 2] {
            ++scene.tally.jobs;
            ++ran;
            if (throws) {
                throw std::runtime_error("as it should");
            }
        });
    }
    const SoakWatch::Wait wait(scene.watch, "the end of a group");
    try {
        if (Choose(scene.random, 2) == 0) {
            for (const Orvane::EndedJob& ended : group) {
                static_cast<void>(ended);
            }
        }
        group.Wait();
        if (fails || ran != kBatch) {
            scene.tally.Fail("a group has not run all its jobs, or has lost its failure");
        }
    } catch (const std::runtime_error&) {
        if (!fails) {
            scene.tally.Fail("a group has failed that should not");
        }
    }
    ++scene.tally.groups;
}

void RunLoop(SoakScene& scene) {
    std::vector<int> items(200);
    std::iota(items.begin(), items.end(), 0);
    const SoakWatch::Wait wait(scene.watch, "the end of a parallel loop");
    const std::vector<int> squares = Orvane::Map(L"squares", items, [](int item) { return item * item; }, 3);
    if (squares.size() != items.size() || squares.back() != 199 * 199) {
        scene.tally.Fail("a parallel loop has lost a result");
    }
}

}  // namespace

void SoakJobs(SoakScene scene) {
    while (!scene.isOver) {
        std::vector<Orvane::Job<int>> jobs;
        std::vector<std::size_t> ways;
        for (int i = 0; i < kBatch; ++i) {
            ways.push_back(Choose(scene.random, 40));
            const SoakWatch::Wait wait(scene.watch, "Run");
            jobs.push_back(StartTimed(scene, ways.back()));
        }
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            CheckEnd(scene, jobs[i], ways[i]);
        }
    }
}

void SoakGroups(SoakScene scene) {
    while (!scene.isOver) {
        RunGroup(scene);
        if (Choose(scene.random, 4) == 0) {
            RunLoop(scene);
        }
    }
}

void SoakSchedules(SoakScene scene) {
    const std::uint64_t skippedBefore = Orvane::GetFigures().schedule.skipped;
    std::atomic<std::uint64_t> beats = 0;
    while (!scene.isOver) {
        Orvane::Tracker beat = Orvane::Schedule(L"beat", 0s, 1ms, [&beats] { ++beats; });
        // Takes longer than its interval.
        Orvane::Tracker late = Orvane::Schedule(L"late", 0s, 1ms, [&beats] {
            ++beats;
            Sleep(3);
        });
        Orvane::JobGroup group(L"scheduled", 2);
        group.Schedule(L"of a group", 0s, 1ms, [&beats] { ++beats; });
        Sleep(static_cast<DWORD>(Choose(scene.random, 40)));
        const std::uint64_t before = beats;
        const SoakWatch::Wait wait(scene.watch, "the next run of a schedule");
        while (beats < before + 3) {
            Sleep(1);
        }
        if (Choose(scene.random, 2) == 0) {
            late.Cancel();
        }
        // Here the trackers and the group end their schedules, and wait.
    }
    scene.tally.scheduledRuns += beats;
    scene.tally.overruns += Orvane::GetFigures().schedule.skipped - skippedBefore;
}

void SoakLocks(SoakScene scene) {
    Orvane::checked_mutex checked;
    Orvane::fifo_mutex fifo;
    int underChecked = 0;  // guarded by the one
    int underFifo = 0;     // guarded by the other
    while (!scene.isOver) {
        constexpr int kEach = 20;
        underChecked = 0;
        underFifo = 0;
        std::vector<Orvane::Job<void>> jobs;
        for (int i = 0; i < 3; ++i) {
            jobs.push_back(Orvane::Run(L"locks", [&] {
                ++scene.tally.jobs;
                for (int turn = 0; turn < kEach; ++turn) {
                    checked.lock();
                    ++underChecked;
                    checked.unlock();
                    fifo.lock();
                    ++underFifo;
                    fifo.unlock();
                }
            }));
        }
        const SoakWatch::Wait wait(scene.watch, "a lock that others take and give back");
        for (const auto& job : jobs) {
            job.Wait();
        }
        scene.tally.lockTurns += 2 * 3 * kEach;
        if (underChecked != 3 * kEach || underFifo != 3 * kEach) {
            scene.tally.Fail("two owners of a mutex");
        }
        Linger(scene.random);
    }
}

}  // namespace Zarvo::Test
