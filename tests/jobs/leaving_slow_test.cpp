// What is said while a group cannot leave because of a thread that has not left an ended job. In real time.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <variant>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/held_handler.h"
#include "tests/jobs/held_unpin.h"
#include "tests/jobs/leaving_module.h"
#include "tests/jobs/own_event.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kHasNotLeft =
    L"Waiting for %d s: job [%s] has ended, and thread [0x%x] has not left it for %d s";

// The name of the job of the first such record.
std::wstring AwaitReport(const RecordedReports& reports) {
    if (!reports.WaitFor(L"Concurrency.Job", kHasNotLeft, 1, 120s)) {
        return L"none";
    }
    const auto report = reports.Matching(L"Concurrency.Job", kHasNotLeft).front();
    EXPECT_GE(std::get<long long>(report.arguments[0]), 30);
    EXPECT_GE(std::get<long long>(report.arguments[3]), 30);
    EXPECT_LT(std::get<long long>(report.arguments[3]), 300);
    return std::get<std::wstring>(report.arguments[1]);
}

TEST(GroupThatCannotLeave, NamesTheJobWhoseThreadIsInTheFailureHandler) {
    const RecordedReports reports;
    const ConcurrencyLifetime lifetime;
    HeldHandler handler;
    JobGroup group(L"group");
    group.Schedule(L"fails", 0s, 24h, [] { throw std::runtime_error("for the handler"); });
    handler.AwaitCall();
    Thread leaves([&group] { EXPECT_TRUE(group.Leave().IsNone()); });
    EXPECT_EQ(AwaitReport(reports), L"group > fails");
    handler.LetGo();
    leaves.join();
}

TEST(GroupThatCannotLeave, NamesTheJobWithoutAGroupThatAThreadHasNotLeft) {
    const RecordedReports reports;
    const ConcurrencyLifetime lifetime;
    const LeavingModule module;
    HeldUnpin held;
    const OwnEvent mayEnd;
    ASSERT_TRUE(module.Call("StartDetached", mayEnd.Get()));
    mayEnd.Set();
    held.AwaitCall();
    Thread leaves([&module] {
        wchar_t text[100]{};
        EXPECT_TRUE(module.Call("DescribeHeld", 1, text, 100));
    });
    EXPECT_EQ(AwaitReport(reports), L"detached");
    held.LetGo();
    leaves.join();
    module.Free();
}

}  // namespace
