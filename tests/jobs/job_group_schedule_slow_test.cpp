// A run that does not answer for longer than the time after which a wait for a task ends the process.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/eventually.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupScheduleThatDoesNotAnswer, IsWaitedForAndNamedInTheLogAndDoesNotEndTheProcess) {
    const ConcurrencyLifetime lifetime;
    const RecordedReports reports;
    std::atomic<bool> begun = false;
    std::atomic<bool> ended = false;
    {
        JobGroup group(L"group");
        group.Schedule(L"deaf", 0s, 1h, [&] {
            begun = true;
            std::this_thread::sleep_for(32s);
            ended = true;
        });
        ASSERT_TRUE(Eventually([&] { return begun.load(); }));
    }
    EXPECT_TRUE(ended);
    const wchar_t* const line = L"Waiting for %d s: job [%s] in thread [0x%x] has run for %d s";
    ASSERT_EQ(reports.Count(L"Concurrency.Job", line), 1U);
    EXPECT_EQ(reports.Matching(L"Concurrency.Job", line).at(0).arguments.at(1), Arguments(L"group > deaf").at(0));
}

}  // namespace
