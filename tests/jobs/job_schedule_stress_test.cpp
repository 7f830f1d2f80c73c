// Groups that go, are asked or fail while a run of their schedule is just being started.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/stress_run.h"

namespace {

using namespace std::chrono_literals;
using namespace Zarvo::Test;

TEST(JobScheduleStress, AGroupMayGoWhileARunIsBeingStarted) {
    const StressRun stress(1500);
    SCOPED_TRACE(stress.Description());
    Random random = stress.Generator(0, 0);
    const Orvane::ConcurrencyLifetime lifetime;
    for (int round = 0; round < stress.Rounds(); ++round) {
        std::atomic<int> runs = 0;
        Orvane::JobGroup group(L"Scheduled");
        const bool fails = Choose(random, 2) == 0;
        const auto work = [&runs, fails] {
            if (++runs == 2 && fails) {
                throw std::runtime_error("second");
            }
        };
        group.Schedule(L"Often", 0s, 100us, work, Orvane::OnFailure::FailGroup);
        Linger(random);
        Linger(random);
        if (Choose(random, 2) == 0) {
            group.Cancel();
        }
    }
}

}  // namespace
