// Everything that can be done with jobs, from many threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kUsers = 3;
constexpr int kJobs = 20;

// What a job does: mostly ends soon, sometimes only when it is asked.
int Work(Random random, int depth, std::atomic<int>& alive);

// One that counts as long as its callable lives.
class Alive {
  public:
    explicit Alive(std::atomic<int>& count) : m_count(&count) { ++count; }
    Alive(Alive&& other) noexcept : m_count(std::exchange(other.m_count, nullptr)) {}
    ~Alive() {
        if (m_count != nullptr) {
            --*m_count;
        }
    }

  private:
    std::atomic<int>* m_count;
};

Job<int> Start(Random& random, int depth, std::atomic<int>& alive, const std::stop_token& token) {
    auto work = [random = Random(random()), depth, alive = Alive(alive), count = &alive]() mutable {
        return Work(random, depth, *count);
    };
    return Choose(random, 5) == 0 ? RunInNewThread(L"dedicated", token, std::move(work))
                                  : Orvane::Run(L"job", token, std::move(work));
}

// Does something with the job; it ends in any case.
void Use(Random& random, Job<int> job) {
    const auto get = [&job] {
        try {
            job.Get();
        } catch (const CancelledException&) {
        } catch (const std::runtime_error&) {
        }
    };
    switch (Choose(random, 8)) {
        case 0: job.Cancel(); break;
        case 1: job.CancelAfter(std::chrono::microseconds(Choose(random, 2'000))); break;
        case 2: {
            const Job<int> dropped = std::move(job);
            Linger(random);
            return;
        }
        case 3: (void)job.WaitFor(std::chrono::microseconds(Choose(random, 500))); break;
        case 4: job.EndEvent(); break;
        case 5:
            job.CancelAfter(1h);
            job.CancelAfter(1ms);
            break;
        case 6: {
            job.CancelAfter(2ms);
            std::vector<Job<int>> jobs;
            jobs.push_back(std::move(job));
            EXPECT_EQ(WhenAny(jobs), 0U);
            job = std::move(jobs[0]);
            break;
        }
        default: {
            BackgroundCall canceller([&job] { job.Cancel(); });
            get();
            return;
        }
    }
    Linger(random);
    job.Cancel();
    get();
}

int Work(Random random, int depth, std::atomic<int>& alive) {
    Linger(random);
    switch (Choose(random, 6)) {
        case 0: SleepUntilAsked();
        case 1: throw std::runtime_error("failed");
        case 2: {
            const std::stop_callback callback(StopTokenOfThisJob(), [] {});
            Linger(random);
            return 2;
        }
        case 3:
            if (depth < 2) {
                std::vector<Job<int>> children;
                for (int i = 0; i < 3; ++i) {
                    children.push_back(Start(random, depth + 1, alive, {}));
                }
                Use(random, std::move(children.back()));
            }
            return 3;
        default: return 0;
    }
}

TEST(JobStorm, EveryJobEndsAndEveryCallableGoes) {
    const StressRun stress(10);
    std::atomic<int> alive = 0;
    for (int round = 0; round < stress.Rounds(); ++round) {
        SCOPED_TRACE(stress.Description());
        {
            const ConcurrencyLifetime lifetime;
            std::list<BackgroundCall> users;
            for (std::size_t user = 0; user < kUsers; ++user) {
                users.emplace_back([&, user] {
                    Random random = stress.Generator(round, user);
                    std::stop_source source;
                    std::list<Job<int>> jobs;
                    for (int i = 0; i < kJobs; ++i) {
                        jobs.push_back(Start(random, 0, alive, source.get_token()));
                        if (Choose(random, 3) != 0) {
                            Use(random, std::move(jobs.front()));
                            jobs.pop_front();
                        }
                    }
                    if (Choose(random, 2) == 0) {
                        source.request_stop();
                    }
                });
            }
            for (const BackgroundCall& user : users) {
                ASSERT_TRUE(user.Ends());
            }
        }
        ASSERT_EQ(alive, 0);
    }
}

// The last uninitialisation comes in the middle of it.
TEST(JobStorm, AShutdownEndsIt) {
    const StressRun stress(10);
    std::atomic<int> alive = 0;
    for (int round = 0; round < stress.Rounds(); ++round) {
        SCOPED_TRACE(stress.Description());
        std::optional<ConcurrencyLifetime> lifetime(std::in_place);
        std::list<BackgroundCall> users;
        for (std::size_t user = 0; user < kUsers; ++user) {
            users.emplace_back([&, user] {
                Random random = stress.Generator(round, user);
                const auto useForEver = [&] {
                    for (;;) {
                        Use(random, Start(random, 0, alive, {}));
                    }
                };
                try {
                    useForEver();
                } catch (const Unexpected&) {
                }
            });
        }
        Random random = stress.Generator(round, kUsers);
        Linger(random);
        Linger(random);
        Linger(random);
        lifetime.reset();
        for (const BackgroundCall& user : users) {
            ASSERT_TRUE(user.Ends());
        }
        users.clear();
        ASSERT_EQ(alive, 0);
    }
}

}  // namespace
