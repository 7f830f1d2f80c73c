// A module that is loaded, used and taken out again and again, while other work goes on.
#include <gtest/gtest.h>

#include <atomic>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/leaving_module.h"
#include "tests/support/stress_run.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

TEST(ModuleUnderLoad, IsUnloadedEachTime) {
    const ConcurrencyLifetime lifetime;
    JobGroup others(L"others", 4);
    std::atomic<bool> isOver = false;
    for (int i = 0; i < 4; ++i) {
        others.Run(L"load", [&isOver] {
            while (!isOver) {
                Orvane::Run(L"empty", [] {}).Get();
            }
        });
    }
    const StressRun run(200);
    for (int i = 0; i < run.Rounds(); ++i) {
        const LeavingModule module;
        ASSERT_TRUE(module.Call("StartGroup", i % 8));
        ASSERT_TRUE(module.Call("LeaveGroup")) << "round " << i;
        module.Free();
        ASSERT_FALSE(LeavingModule::IsLoaded()) << "round " << i;
    }
    isOver = true;
    others.Wait();
}

}  // namespace
