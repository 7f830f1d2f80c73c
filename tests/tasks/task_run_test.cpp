// Running a task: what is logged, and what leaves the run.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

const std::wstring kStarted = L"Task [%s] started in thread [0x%x (%d)] of process [0x%x (%d)]";
const std::wstring kStopped = L"Task [%s] stopped normally in thread [0x%x (%d)] of process [0x%x (%d)]";

// The arguments of both records of a run on this thread.
std::vector<ReportArgument> ArgumentsOfRun(const wchar_t* name) {
    const DWORD thread = ::GetCurrentThreadId();
    const DWORD process = ::GetCurrentProcessId();
    return Arguments(name, thread, static_cast<int>(thread), process, static_cast<int>(process));
}

std::vector<std::wstring> FormatsOf(const RecordedReports& reports) {
    std::vector<std::wstring> formats;
    for (const RecordedReport& record : reports.All()) {
        formats.push_back(record.format);
    }
    return formats;
}

TEST(TaskRun, LogsStartAndStopWithNameThreadAndProcess) {
    const RecordedReports reports;
    Task task = MakeTask(L"Read index", [] {});
    task();

    ASSERT_EQ(reports.All().size(), 2U);
    for (const RecordedReport& record : reports.All()) {
        EXPECT_EQ(record.severity, 1);
        EXPECT_EQ(record.kind, 16);
        EXPECT_EQ(record.category, L"Concurrency.Task");
        EXPECT_EQ(record.arguments, ArgumentsOfRun(L"Read index"));
        EXPECT_EQ(record.threadId, ::GetCurrentThreadId());
    }
    EXPECT_EQ(FormatsOf(reports), std::vector({kStarted, kStopped}));
}

TEST(TaskRun, LogsTheThreadThatItRunsOn) {
    const RecordedReports reports;
    Task task = MakeTask(L"elsewhere", [] {});
    std::vector<ReportArgument> expected;
    PlainThread([&] {
        expected = ArgumentsOfRun(L"elsewhere");
        task();
    }).Join();

    ASSERT_EQ(reports.All().size(), 2U);
    EXPECT_EQ(reports.All()[0].arguments, expected);
    EXPECT_EQ(reports.All()[1].arguments, expected);
}

TEST(TaskRun, LogsTheNameAsKept) {
    const RecordedReports reports;
    MakeTask(L"12345678901234567890123456789 and more", [] {})();

    EXPECT_EQ(reports.Last().arguments, ArgumentsOfRun(L"12345678901234567890123456789"));
}

TEST(TaskRun, RunsBetweenItsTwoRecords) {
    const RecordedReports reports;
    std::size_t recordsBefore = 0;
    MakeTask(L"", [&] { recordsBefore = reports.All().size(); })();

    EXPECT_EQ(recordsBefore, 1U);
    EXPECT_EQ(reports.All().size(), 2U);
}

TEST(TaskRun, LogsANormalStopForATaskThatFailedToo) {
    const RecordedReports reports;
    MakeTask(L"", [] { throw Failure(1); })();
    MakeTask(L"", [] { throw Unexpected(L"framework error"); })();

    EXPECT_EQ(FormatsOf(reports), std::vector({kStarted, kStopped, kStarted, kStopped}));
}

TEST(TaskRun, LogsANormalStopForATaskThatWasCancelledToo) {
    const RecordedReports reports;
    Task task;
    task = MakeTask(L"", [&] { task.Cancel(); });
    task();

    EXPECT_EQ(FormatsOf(reports), std::vector({kStarted, kStopped}));
}

TEST(TaskRun, LogsNoStopWhenAnExceptionLeavesIt) {
    const RecordedReports reports;
    Task task = MakeTask(L"", [] { throw std::runtime_error("not for a future"); });

    EXPECT_THROW(task(), std::runtime_error);
    EXPECT_EQ(FormatsOf(reports), std::vector({kStarted}));
}

TEST(TaskRun, LetsTheExceptionOutUnchanged) {
    auto state = ScriptedIn(State::NotStarted);
    state->run = [] { throw 42; };
    Task task(L"", state);
    try {
        task();
        FAIL() << "nothing was thrown";
    } catch (int number) {
        EXPECT_EQ(number, 42);
    }
}

TEST(TaskRun, OfATaskCancelledBeforeNeitherLogsNorRuns) {
    using Cancel = void (*)(Task&);
    const Cancel ways[]{
        [](Task& task) { task.Cancel(); },
        [](Task& task) { task.GetWrapper()->GetFuture()->RequestCancel(); },
        [](Task& task) {
            task.Cancel();
            task.Wait();
        },
    };
    for (const Cancel cancel : ways) {
        const RecordedReports reports;
        int runs = 0;
        auto state = ScriptedIn(State::NotStarted);
        state->run = [&] { ++runs; };
        Task task(L"", state);
        cancel(task);
        task();

        EXPECT_EQ(runs, 0);
        EXPECT_TRUE(reports.All().empty());
    }
}

TEST(TaskRun, OfATaskThatIsCancellingNeitherLogsNorRuns) {
    const RecordedReports reports;
    int runs = 0;
    auto state = ScriptedIn(State::Cancelling);
    state->run = [&] { ++runs; };
    Task(L"", state)();

    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(reports.All().empty());
}

TEST(TaskRun, CallsTheStateOnceOnTheCallingThread) {
    int runs = 0;
    DWORD thread = 0;
    auto state = ScriptedIn(State::NotStarted);
    state->run = [&] {
        ++runs;
        thread = ::GetCurrentThreadId();
    };
    Task(L"", state)();

    EXPECT_EQ(runs, 1);
    EXPECT_EQ(thread, ::GetCurrentThreadId());
}

// A run outlives whatever is done to its handles meanwhile.
TEST(TaskRun, GoesOnWhenItsCallableLetsGoOfTheHandle) {
    const RecordedReports reports;
    auto task = std::make_unique<Task>();
    bool reachedTheEnd = false;
    *task = MakeTask(L"on its own", [&] {
        task.reset();
        reachedTheEnd = true;
    });
    (*task)();

    EXPECT_TRUE(reachedTheEnd);
    EXPECT_EQ(reports.Last().format, kStopped);
    EXPECT_EQ(reports.Last().arguments, ArgumentsOfRun(L"on its own"));
}

TEST(TaskRun, GoesOnWhenAnotherThreadEmptiesTheHandle) {
    bool running = false;
    bool destroyedDuringTheRun = false;
    const FuturePointer future(new Future());  // no task attached: a wait is over at once
    auto state = std::make_shared<ScriptedState>(future);
    Task task(L"", state);
    state->destroyed = [&] { destroyedDuringTheRun = running; };
    state->run = [&] {
        running = true;
        PlainThread([&] { task.Wait(); }).Join();
        EXPECT_TRUE(IsEmptied(task));
        running = false;
    };
    state.reset();
    task();

    EXPECT_FALSE(destroyedDuringTheRun);
}

// Counts the blocks that are there.
template <typename T>
struct CountingAllocator {
    using value_type = T;

    explicit CountingAllocator(int& count) : blocks(&count) {}
    template <typename U>
    explicit CountingAllocator(const CountingAllocator<U>& other) : blocks(other.blocks) {}

    T* allocate(std::size_t count) {
        ++*blocks;
        return std::allocator<T>().allocate(count);
    }
    void deallocate(T* block, std::size_t count) {
        --*blocks;
        std::allocator<T>().deallocate(block, count);
    }
    friend bool operator==(const CountingAllocator&, const CountingAllocator&) = default;

    int* blocks;
};

// The module that made it may be unloaded while somebody still has a handle.
TEST(TaskRun, LeavesNothingOfItsStateToTheHandleThatWaitedForIt) {
    int blocks = 0;
    auto state =
        std::allocate_shared<ScriptedState>(CountingAllocator<ScriptedState>(blocks), AttachedFutureIn(State::Normal));
    Task task(L"", std::move(state));
    EXPECT_EQ(blocks, 1);
    task();
    task.Wait();
    EXPECT_EQ(blocks, 0);
}

TEST(TaskRun, LeavesNothingOfItsStateThoughItThrows) {
    int blocks = 0;
    auto state =
        std::allocate_shared<ScriptedState>(CountingAllocator<ScriptedState>(blocks), AttachedFutureIn(State::Normal));
    state->run = [] { throw std::runtime_error("left the run"); };
    Task task(L"", std::move(state));
    EXPECT_THROW(task(), std::runtime_error);
    task.Wait();
    EXPECT_EQ(blocks, 0);
}

}  // namespace
