// Tasks that are started, cancelled, finished, waited for and renewed at the same time.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr std::size_t kRacingTasks = 48;

enum class Work { kReturn, kLinger, kThrow, kSleep, kPoll, kCancelItself, kCount };

// How the runs of a round ended, as seen from inside.
struct Runs {
    std::atomic<std::size_t> entered = 0;
    std::atomic<std::size_t> returned = 0;
    std::atomic<std::size_t> threw = 0;
    std::atomic<std::size_t> unwound = 0;

    std::size_t Ended() const { return returned + threw + unwound; }
};

// Takes a few milliseconds at most, whether it is cancelled or not.
void Do(Work work, Random random, Task& self) {
    switch (work) {
        case Work::kLinger: Linger(random); break;
        case Work::kThrow: Linger(random); throw Unexpected(L"thrown on purpose");
        case Work::kSleep: CancellableSleep(static_cast<DWORD>(Choose(random, 5))); break;
        case Work::kPoll:
            for (int i = 0; i < 20; ++i) {
                CancellationPoint();
                Linger(random);
            }
            break;
        case Work::kCancelItself:
            Linger(random);
            self.Cancel();
            break;
        default: break;
    }
}

// The tasks of one round and their futures. Nothing is queued yet.
struct Round {
    Round(const StressRun& stress, int number, std::size_t kinds) : tasks(kRacingTasks), futures(kRacingTasks) {
        Random random = stress.Generator(number, 0);
        for (std::size_t i = 0; i < kRacingTasks; ++i) {
            const auto work = static_cast<Work>(Choose(random, kinds));
            const auto body = [this, work, random = stress.Generator(number, 1000 + i), i] {
                ++runs.entered;
                try {
                    Do(work, random, tasks[i]);
                } catch (const CancelRequestedException&) {
                    ++runs.unwound;
                    throw;
                } catch (const Unexpected&) {
                    ++runs.threw;
                    throw;
                }
                ++runs.returned;
            };
            tasks[i] = MakeTask(L"raced", body, futures[i]);
        }
    }

    bool IsPoolDone() {
        return std::none_of(tasks.begin(), tasks.end(),
                            [](const Task& task) { return GlobalThreadPool::IsPresent(task); });
    }

    std::vector<Task> tasks;
    std::vector<std::shared_ptr<FutureImpl<void>>> futures;
    Runs runs;
};

bool IsFinal(const FutureImpl<void>& future) {
    return future.IsReady() && !future.IsCancelling();
}

TimePoint InAMillisecond() {
    return std::chrono::time_point_cast<Duration>(TimePoint::clock::now()) + std::chrono::milliseconds(1);
}

// Calls `act` with a random task, again and again.
template <typename Act>
void Disturb(Random random, Act act) {
    for (std::size_t i = 0; i < kRacingTasks; ++i) {
        Linger(random);
        act(Choose(random, kRacingTasks), random);
    }
}

void ExpectOutcomesToAddUp(const Round& round) {
    std::size_t normal = 0;
    std::size_t cancelled = 0;
    std::size_t failed = 0;
    for (const auto& future : round.futures) {
        ASSERT_TRUE(IsFinal(*future));
        ++(future->IsNormal() ? normal : future->IsCancelled() ? cancelled : failed);
    }
    // A run that returns or throws after a request has that outcome; all others are cancelled, run or not.
    EXPECT_EQ(round.runs.entered, round.runs.Ended());
    EXPECT_EQ(normal, round.runs.returned);
    EXPECT_EQ(failed, round.runs.threw);
    EXPECT_EQ(cancelled, kRacingTasks - round.runs.returned - round.runs.threw);
}

TEST(TaskRaces, EveryTaskEndsInAFinalStateAndTheCountsAddUp) {
    const StressRun stress(10);
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        Round round(stress, number, static_cast<std::size_t>(Work::kCount));
        const ConcurrencyLifetime lifetime;
        {
            std::list<BackgroundCall> actors;
            actors.emplace_back([&] {
                Random random = stress.Generator(number, 1);
                for (const Task& task : round.tasks) {
                    GlobalThreadPool::Queue(task);
                    Linger(random);
                }
            });
            for (const std::size_t thread : {2U, 3U}) {
                actors.emplace_back([&, thread] {
                    Disturb(stress.Generator(number, thread), [&](std::size_t i, Random& random) {
                        Choose(random, 3) == 0 ? round.tasks[i].Cancel() : round.futures[i]->RequestCancel();
                    });
                });
            }
            actors.emplace_back([&] {
                Disturb(stress.Generator(number, 4),
                        [&](std::size_t i, Random&) { round.futures[i]->TimedWait(InAMillisecond()); });
            });
            actors.emplace_back(
                [&] { Disturb(stress.Generator(number, 5), [&](std::size_t i, Random&) { round.tasks[i].Wait(); }); });
            for (const BackgroundCall& actor : actors) {
                ASSERT_TRUE(actor.Ends());
            }
        }
        ASSERT_TRUE(Eventually([&] {
            return std::all_of(round.futures.begin(), round.futures.end(),
                               [](const auto& future) { return IsFinal(*future); });
        }));
        ASSERT_TRUE(Eventually([&] { return round.IsPoolDone(); }));
        ExpectOutcomesToAddUp(round);
    }
}

// Renewed while they run, wait in the queue or are being cancelled, and queued several times.
TEST(TaskRaces, RenewedTasksAreNeverLeftBusy) {
    const StressRun stress(10);
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        // Without those that cancel themselves: two workers may have the same task.
        Round round(stress, number, static_cast<std::size_t>(Work::kCancelItself));
        const ConcurrencyLifetime lifetime;
        std::atomic<std::size_t> queued = 0;
        {
            std::list<BackgroundCall> actors;
            for (const std::size_t thread : {1U, 2U, 3U, 4U}) {
                actors.emplace_back([&, thread] {
                    Disturb(stress.Generator(number, thread), [&](std::size_t i, Random& random) {
                        Task& task = round.tasks[i];
                        switch (Choose(random, 8)) {
                            case 0: task.Cancel(); break;
                            case 1:
                            case 2: task.Reset(); break;
                            case 3: round.futures[i]->RequestCancel(); break;
                            default:
                                ++queued;
                                GlobalThreadPool::Queue(task);
                                break;
                        }
                    });
                });
            }
            for (const BackgroundCall& actor : actors) {
                ASSERT_TRUE(actor.Ends());
            }
        }
        ASSERT_TRUE(Eventually([&] { return round.IsPoolDone(); }));
        EXPECT_EQ(round.runs.entered, round.runs.Ended());
        EXPECT_LE(round.runs.entered, queued);
        for (Task& task : round.tasks) {
            EXPECT_FALSE(task.IsBusy());
            task.Cancel();
            EXPECT_TRUE(task.IsCancelled());
            EXPECT_TRUE(task.GetWrapper()->GetFuture()->IsReady());
        }
    }
}

}  // namespace
