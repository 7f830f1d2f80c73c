// What the log says of jobs that do not leave, in the test's own time.
#include "concurrency/jobs/asked_look.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "concurrency/base/clock.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr const wchar_t* kLoss = L"Jobs that do not leave when they are asked are not reported: %hs";
constexpr std::uint64_t kNone = (std::numeric_limits<std::uint64_t>::max)();

class AskedLookTest : public JobTest {
  protected:
    AskedLookTest() : m_job(RunHeld(m_mayEnd, L"deaf")) {}
    ~AskedLookTest() override { m_mayEnd->Open(); }

    // When the job was asked, within one step of the clock.
    std::uint64_t Ask() {
        m_job.Cancel();
        m_reports.Clear();
        return CoarseClock::Ticks();
    }
    std::size_t Reports() const { return m_reports.Count(L"Concurrency.Job", L"%s"); }
    std::wstring LastReport() const { return m_reports.Last().text; }

    AskedLook m_look;
    const std::shared_ptr<Gate> m_mayEnd = std::make_shared<Gate>();
    RecordedReports m_reports;
    Job<void> m_job;
};

constexpr std::uint64_t kStep = 50;  // more than the clock's

TEST_F(AskedLookTest, SaysNothingOfAJobThatWasNotAsked) {
    EXPECT_EQ(m_look.ReportDue(CoarseClock::Ticks() + 60'000), kNone);
    EXPECT_EQ(Reports(), 0U);
}

TEST_F(AskedLookTest, ComesBackFiveSecondsAfterTheRequest) {
    const auto asked = Ask();
    const auto next = m_look.ReportDue(asked + 1'000);
    EXPECT_EQ(Reports(), 0U);
    EXPECT_LE(next, asked + 5'000);
    EXPECT_GE(next, asked + 5'000 - kStep);
}

TEST_F(AskedLookTest, ReportsAfterFiveSecondsAndAfterThirtyAndNotBetween) {
    const auto asked = Ask();
    const auto second = m_look.ReportDue(asked + 5'000);
    EXPECT_EQ(Reports(), 1U);
    EXPECT_TRUE(LastReport().starts_with(L"deaf: asked 5."));
    EXPECT_TRUE(LastReport().ends_with(L" s ago through its handle, in no wait of the library"));
    EXPECT_LE(second, asked + 30'000);
    EXPECT_GE(second, asked + 30'000 - kStep);

    EXPECT_EQ(m_look.ReportDue(asked + 20'000), second);
    EXPECT_EQ(Reports(), 1U);

    EXPECT_EQ(m_look.ReportDue(asked + 30'000), kNone);
    EXPECT_EQ(Reports(), 2U);
    EXPECT_TRUE(LastReport().starts_with(L"deaf: asked 30."));

    EXPECT_EQ(m_look.ReportDue(asked + 90'000), kNone);
    EXPECT_EQ(Reports(), 2U);
}

TEST_F(AskedLookTest, ThatComesLateReportsOnce) {
    const auto asked = Ask();
    EXPECT_EQ(m_look.ReportDue(asked + 40'000), kNone);
    EXPECT_EQ(Reports(), 1U);
}

TEST_F(AskedLookTest, WithoutMemorySaysSoOnceAndReportsWhenThereIsSome) {
    const auto asked = Ask();
    {
        const FailingNew none(1);
        EXPECT_EQ(m_look.ReportDue(asked + 5'000), asked + 10'000);
        EXPECT_TRUE(none.HasFailed());
    }
    EXPECT_EQ(Reports(), 0U);
    {
        const FailingNew none(1);
        EXPECT_EQ(m_look.ReportDue(asked + 10'000), asked + 15'000);
    }
    EXPECT_EQ(m_reports.Count(L"Concurrency.Job", kLoss), 1U);
    m_look.ReportDue(asked + 15'000);
    EXPECT_EQ(Reports(), 1U);
}

TEST_F(AskedLookTest, SaysNothingOfAJobThatHasLeft) {
    const auto asked = Ask();
    m_mayEnd->Open();
    m_job.Wait();
    EXPECT_EQ(m_look.ReportDue(asked + 5'000), kNone);
    EXPECT_EQ(Reports(), 0U);
}

}  // namespace
