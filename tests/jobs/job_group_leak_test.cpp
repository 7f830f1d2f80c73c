// Long use of groups and loops leaves nothing behind: no handle, no thread, no block of memory.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/blocked.h"
#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void UseGroupsOnce() {
    {
        JobGroup group(L"fails", 3);
        for (int i = 0; i < 10; ++i) {
            group.Run(L"job", [i] {
                if (i == 5) {
                    throw std::domain_error("fails");
                }
            });
        }
        EXPECT_THROW(group.Wait(), std::domain_error);
    }
    {
        Blocked blocked;
        JobGroup group(L"dropped", 2);
        group.Schedule(L"once", 0s, 0s, [] {});
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"waiting", [] {});
        EXPECT_TRUE(blocked.Enter(1));
    }
    {
        JobGroup group(L"waits", 1);
        group.Run(L"outer", [&group] { group.Run(L"inner", [] {}).Wait(); });
        group.CancelAfter(1h);
        group.Wait();
    }
    Orvane::Run(L"loop", [] {
        const std::vector<int> items(100);
        ForEach(L"items", items, [](int) {}, 3);
    }).Get();
}

TEST(JobGroupLeak, IsNoneAfterLongUse) {
    constexpr int kTimes = 40;
    const ConcurrencyLifetime lifetime;
    const auto useOften = [] {
        for (int i = 0; i < kTimes; ++i) {
            UseGroupsOnce();
        }
    };
    useOften();
    // A worker may keep what it ran last: less than one block for each use is no leak.
    const ResourceProbe probe;
    useOften();
    useOften();
    const auto isSmall = [&probe] {
        const Resources growth = probe.Growth();
        return growth.handles <= 0 && growth.threads <= 0 && growth.blocks < kTimes;
    };
    EXPECT_TRUE(Eventually(isSmall)) << probe.Growth();
}

}  // namespace
