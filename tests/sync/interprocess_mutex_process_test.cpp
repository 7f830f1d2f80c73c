// interprocess_mutex between processes.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/support/child_process.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/task_thread.h"
#include "tests/sync/kernel_names.h"
#include "tests/sync/shared_number.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class InterprocessMutexOfTwoProcesses : public testing::Test {
  protected:
    std::future<ChildResult> StartChild(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1, std::string(m_name.begin(), m_name.end()));
        return std::async(std::launch::async,
                          [arguments] { return RunChild("interprocess_mutex_process_test_child", arguments); });
    }

    const std::wstring m_name = UniqueName(L"processes");
    interprocess_mutex m_mutex{m_name.c_str()};
};

TEST_F(InterprocessMutexOfTwoProcesses, KeepsOneOutWhileTheOtherHoldsIt) {
    SharedEvent held(m_name + L"_held");
    SharedEvent release(m_name + L"_release");
    auto child = StartChild({"hold"});
    ASSERT_TRUE(held.Wait());
    TaskThread waiter([&] {
        m_mutex.lock();
        m_mutex.unlock();
    });
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(waiter.IsRunning());

    release.Set();
    EXPECT_TRUE(waiter.EndedNormally());
    EXPECT_EQ(child.get().exitCode, 0U);
}

TEST_F(InterprocessMutexOfTwoProcesses, IsLeftByACancelledWaiterWhileTheOtherHoldsIt) {
    SharedEvent held(m_name + L"_held");
    SharedEvent release(m_name + L"_release");
    auto child = StartChild({"hold"});
    ASSERT_TRUE(held.Wait());
    TaskThread waiter([&] { m_mutex.lock(); });
    waiter.Cancel();
    EXPECT_TRUE(waiter.EndedCancelled());

    release.Set();
    EXPECT_EQ(child.get().exitCode, 0U);
    m_mutex.lock();
    m_mutex.unlock();
}

TEST_F(InterprocessMutexOfTwoProcesses, LosesNoAdditionOfThreeProcesses) {
    constexpr long kAdditions = 300;
    SharedNumber number(m_name + L"_number");
    auto one = StartChild({"add", std::to_string(kAdditions)});
    auto two = StartChild({"add", std::to_string(kAdditions)});
    for (long i = 0; i < kAdditions; ++i) {
        m_mutex.lock();
        number.AddOne();
        m_mutex.unlock();
    }
    EXPECT_EQ(one.get().exitCode, 0U);
    EXPECT_EQ(two.get().exitCode, 0U);
    EXPECT_EQ(number.Get(), 3 * kAdditions);
}

TEST_F(InterprocessMutexOfTwoProcesses, IsAFailureOnceWhenTheOtherDiedHoldingIt) {
    EXPECT_EQ(StartChild({"die"}).get().exitCode, 7U);
    const RecordedReports reports;
    EXPECT_THROW(m_mutex.lock(), LockException);
    EXPECT_EQ(reports.Count(L"interprocess_mutex::DoLock", L"Failed to lock mutex %x, error code %x"), 1U);

    m_mutex.unlock();
    EXPECT_NO_THROW(m_mutex.lock());
    m_mutex.unlock();
    EXPECT_EQ(reports.All().size(), 1U);
}

TEST_F(InterprocessMutexOfTwoProcesses, IsAbandonedByAProcessThatDestroysItLocked) {
    const ChildResult child = StartChild({"destroy"}).get();
    EXPECT_EQ(child.exitCode, 0U);
    EXPECT_NE(child.LastRecord().find("Attempt to destroy locked mutex "), std::string::npos) << child.LastRecord();

    EXPECT_THROW(m_mutex.lock(), LockException);
    m_mutex.unlock();
}

}  // namespace
