// A wait that lasts says for whom, every thirty seconds.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <variant>

#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr const wchar_t* kLate = L"Waiting for %d s: job [%s] in thread [0x%x] has run for %d s";

class LongJobWait : public JobTest {};

TEST_F(LongJobWait, NamesTheInnermostJobWithItsChainAndWaitsOn) {
    const RecordedReports reports;
    Gate mayEnd;
    auto outer = Run(L"outer", [&mayEnd] {
        auto inner = Orvane::Run(L"inner", [&mayEnd] {
            while (!mayEnd.IsOpen()) {
                Sleep(10);
            }
        });
        inner.Wait();
    });
    EXPECT_FALSE(outer.WaitFor(std::chrono::seconds(35)));
    const auto late = reports.Matching(L"Concurrency.Job", kLate);
    mayEnd.Open();
    outer.Get();
    ASSERT_EQ(late.size(), 2U);  // of this wait and of that of the outer job
    for (const auto& report : late) {
        EXPECT_GE(std::get<long long>(report.arguments[0]), 30);
        EXPECT_EQ(std::get<std::wstring>(report.arguments[1]), L"outer > inner");
        EXPECT_GE(std::get<long long>(report.arguments[3]), 29);
    }
}

}  // namespace
