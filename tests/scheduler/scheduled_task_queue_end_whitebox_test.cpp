// What a queue does with the tasks that are left in it.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/scheduler/scheduled_task_queue.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/probe_task.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kCategory = L"Schedule";

class ScheduledTaskQueueEnd : public testing::Test {
  protected:
    // Returns the task, so that it outlives the queue.
    Task Push(const wchar_t* name, TimePoint start, Duration interval = kOnce) {
        const Task task = MakeTask(name, [this] { ++m_runs; });
        m_queue->Push(ScheduledTask(task, start, interval));
        return task;
    }

    std::vector<std::wstring> EndAndListReportedNames() {
        m_queue.reset();
        std::vector<std::wstring> names;
        for (const RecordedReport& record : m_reports.All()) {
            names.push_back(std::get<std::wstring>(record.arguments.at(0)));
        }
        return names;
    }

    const RecordedReports m_reports;
    int m_runs = 0;
    std::unique_ptr<ScheduledTaskQueue> m_queue = std::make_unique<ScheduledTaskQueue>();
};

TEST_F(ScheduledTaskQueueEnd, SaysNothingWhenItIsEmpty) {
    EXPECT_TRUE(EndAndListReportedNames().empty());
}

TEST_F(ScheduledTaskQueueEnd, ReportsATaskThatIsLeft) {
    Push(L"Nightly", Now() + 1h);
    m_queue.reset();

    ASSERT_EQ(m_reports.All().size(), 1U);
    const RecordedReport record = m_reports.Last();
    EXPECT_EQ(record.severity, 4);
    EXPECT_EQ(record.kind, 16);
    EXPECT_EQ(record.category, kCategory);
    EXPECT_EQ(record.format, L"Active task %s still in schedule at destruction");
    EXPECT_EQ(record.arguments, Arguments(L"Nightly"));
    EXPECT_EQ(record.text, L"Active task Nightly still in schedule at destruction");
    EXPECT_EQ(record.threadId, GetCurrentThreadId());
}

TEST_F(ScheduledTaskQueueEnd, ReportsTheEarliestFirst) {
    const TimePoint now = Now();
    Push(L"fourth", now + 2h, 1s);
    Push(L"second", now - 1h);
    Push(L"fifth", TimePoint::max());
    Push(L"first", TimePoint::min());
    Push(L"third", now + 1h);

    EXPECT_EQ(EndAndListReportedNames(),
              (std::vector<std::wstring>{L"first", L"second", L"third", L"fourth", L"fifth"}));
}

TEST_F(ScheduledTaskQueueEnd, SaysNothingOfTasksThatAreCancelledOrEmpty) {
    const TimePoint now = Now();
    Push(L"before", now + 1h);
    Push(L"cancelled", now + 2h, 1s).Cancel();
    m_queue->Push(ScheduledTask(Task(), now + 3h, 1s));
    Push(L"after", now + 4h);

    EXPECT_EQ(EndAndListReportedNames(), (std::vector<std::wstring>{L"before", L"after"}));
}

TEST_F(ScheduledTaskQueueEnd, NeitherRunsNorCancelsWhatIsLeft) {
    Task due = Push(L"due", k1970);
    const Task later = Push(L"later", Now() + 1h, 1s);
    m_queue.reset();

    EXPECT_EQ(m_runs, 0);
    EXPECT_FALSE(due.IsCancelled());
    EXPECT_FALSE(later.IsCancelled());
    due();
    EXPECT_EQ(m_runs, 1);
}

TEST_F(ScheduledTaskQueueEnd, LetsGoOfWhatIsLeft) {
    bool destroyed = false;
    m_queue->Push(ScheduledTask(MakeTask(L"left", [end = AtEnd([&] { destroyed = true; })] {}), Now() + 1h, kOnce));
    ASSERT_FALSE(destroyed);

    m_queue.reset();

    EXPECT_TRUE(destroyed);
}

// A callable's destructor is the user's code: it may wait for a thread that is inside the queue.
TEST_F(ScheduledTaskQueueEnd, DestroysWhatIsLeftWithoutItsLock) {
    ScheduledTaskQueue* const queue = m_queue.get();
    bool lockWasFree = false;
    const auto useQueue = [queue] {
        ScheduledTask due;
        queue->PopExpired(due);
    };
    m_queue->Push(ScheduledTask(MakeTask(L"left", [end = AtEnd([&] {
                                                       const BackgroundCall other(useQueue);
                                                       lockWasFree = other.Ends();
                                                   })] {}),
                                Now() + 1h, kOnce));
    m_queue.reset();

    EXPECT_TRUE(lockWasFree);
}

TEST_F(ScheduledTaskQueueEnd, NeedsNoMemory) {
    Push(L"second", Now() + 2h);
    Push(L"first", Now() + 1h);
    {
        const FailingAllocation failing(1);
        m_queue.reset();
        EXPECT_FALSE(failing.HasFailed());
    }

    EXPECT_EQ(m_reports.Count(kCategory, L"Active task %s still in schedule at destruction"), 2U);
    EXPECT_EQ(m_reports.All().size(), 2U);
}

// As a mutex may that has nothing left to wait with.
class RefusesToAnswer : public ProbeState {
  public:
    using ProbeState::ProbeState;
    bool IsCancelled() const override { throw std::system_error(std::make_error_code(std::errc::not_enough_memory)); }
};

TEST_F(ScheduledTaskQueueEnd, SaysThatItFailedWhenALockFails) {
    const auto refused = std::make_shared<ProbeRecord>();
    m_queue->Push(ScheduledTask(Task(L"refused", std::make_shared<RefusesToAnswer>(refused)), Now() + 1h, kOnce));
    const Task kept = Push(L"kept", Now() + 2h);
    m_queue.reset();

    EXPECT_TRUE(refused->destroyed);
    ASSERT_EQ(m_reports.All().size(), 1U);
    const RecordedReport record = m_reports.Last();
    EXPECT_EQ(record.severity, 4);
    EXPECT_EQ(record.kind, 16);
    EXPECT_EQ(record.category, kCategory);
    EXPECT_EQ(record.format, L"Failed to lock scheduledTask queue");
    EXPECT_FALSE(kept.IsCancelled());
}

}  // namespace
