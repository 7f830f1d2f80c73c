// A worker that sleeps is suspended, as by a debugger or for want of a processor: the others do all the work but one task.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "concurrency/base/windows_api.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(SuspendedWorker, DelaysAtMostOneTaskOfABurst) {
    constexpr std::size_t kWorkers = 8;
    const ThreadPool<NullPolicy> pool(kWorkers);
    const StressRun run(4);
    for (int round = 0; round < run.Rounds(); ++round) {
        for (std::size_t worker = 0; worker < kWorkers; ++worker) {
            ASSERT_TRUE(Eventually([&] { return IdleWorkers(*pool.Core()) == kWorkers; }));
            const HANDLE thread = WorkerHandle(*pool.Core(), worker);
            HeldTasks held;
            ASSERT_NE(SuspendThread(thread), static_cast<DWORD>(-1));
            for (int i = 0; i < 5; ++i) {
                pool.Core()->Queue(held.Make());
            }
            EXPECT_TRUE(Eventually([&] { return held.Entered() >= 4; })) << "round " << round << ", worker " << worker;
            ASSERT_NE(ResumeThread(thread), static_cast<DWORD>(-1));
        }
    }
}

}  // namespace
