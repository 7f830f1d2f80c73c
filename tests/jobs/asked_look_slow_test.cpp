// A job that does not leave is reported by a thread that needs no worker. In real time.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "concurrency/jobs/job.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

class LateJob : public JobTest {};

TEST_F(LateJob, IsReportedAfterFiveSecondsWithoutAWorkerToSpare) {
    const RecordedReports reports;
    const auto mayEnd = std::make_shared<Gate>();
    std::vector<Job<void>> held;
    for (int i = 0; i < 5; ++i) {
        held.push_back(RunHeld(mayEnd));
    }
    auto job = RunHeld(mayEnd, L"deaf");
    job.Cancel();
    const bool isReported = reports.WaitFor(L"Concurrency.Job", L"%s");
    const std::wstring text = isReported ? reports.Matching(L"Concurrency.Job", L"%s").front().text : L"";
    mayEnd->Open();
    EXPECT_TRUE(text.starts_with(L"deaf: asked 5."));
}

}  // namespace
