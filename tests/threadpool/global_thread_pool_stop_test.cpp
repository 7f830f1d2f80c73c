// What ends the process, and workers that clients have killed.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/child_process.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/killed_worker.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

bool HasRecord(const ChildResult& child, const std::string& text) {
    return std::any_of(child.log.begin(), child.log.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

// The task has started, and nothing was logged after that.
void ExpectEndInTheMiddleOfTheTask(const std::string& what) {
    const ChildResult child = RunChild("global_thread_pool_test_child", {what});
    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_LT(child.elapsed, 25s);  // not after the 30 s that shutdown gives to tasks
    EXPECT_TRUE(HasRecord(child, "Task [doomed] started in thread")) << child.LastRecord();
    EXPECT_FALSE(HasRecord(child, "Task [doomed] stopped")) << child.LastRecord();
    EXPECT_NE(child.LastRecord().find("Task [doomed] started in thread"), std::string::npos) << child.LastRecord();
}

TEST(GlobalThreadPoolEnd, LastUninitialisationOnAWorkerEndsTheProcess) {
    ExpectEndInTheMiddleOfTheTask("uninitialise-on-a-worker");
}

TEST(GlobalThreadPoolEnd, LastUninitialisationOnADedicatedThreadEndsTheProcess) {
    ExpectEndInTheMiddleOfTheTask("uninitialise-on-a-dedicated-thread");
}

TEST(GlobalThreadPoolEnd, ExceptionUnknownToTheLibraryEndsTheProcessOnAWorker) {
    ExpectEndInTheMiddleOfTheTask("unknown-exception-on-a-worker");
}

TEST(GlobalThreadPoolEnd, ExceptionUnknownToTheLibraryEndsTheProcessOnADedicatedThread) {
    ExpectEndInTheMiddleOfTheTask("unknown-exception-on-a-dedicated-thread");
}

TEST(GlobalThreadPoolEnd, ProcessMayEndWithoutUninitialisation) {
    const ChildResult child = RunChild("global_thread_pool_test_child", {"never-uninitialise"});
    EXPECT_EQ(child.exitCode, 0U);
}

TEST(GlobalThreadPoolStop, NextPoolStartsWithoutKilledWorkers) {
    {
        const ConcurrencyLifetime lifetime;
        KillOneWorker();
        GlobalThreadPool::IncreaseKilledThreadCount();
    }
    const Stopwatch stopwatch;
    {
        const ConcurrencyLifetime lifetime;
        Task task = MakeTask(L"task", [] {});
        GlobalThreadPool::Queue(task);
        task.Wait();
    }
    EXPECT_LT(stopwatch.Elapsed(), 25s);
}

}  // namespace
