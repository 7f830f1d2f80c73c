#include "concurrency/scheduler/tracker_impl.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Work = std::function<void()>;

// A task state whose renewal fails, for the guard's two reports.
class NotRenewable : public ITaskState {
  public:
    void operator()() override {}
    std::shared_ptr<ITaskState> Recreate() override { throw std::runtime_error("no renewal"); }
    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    std::shared_ptr<FutureImpl<void>> m_future = std::make_shared<FutureImpl<void>>();
};

TEST(TrackerImpl, ThrowsWithoutWorkAndResetsItsTask) {
    TrackerImpl tracker;
    Task task = MakeTask(L"Nothing", [] {});
    tracker.SetTask(ScheduledTask(task, Now(), 1s));
    const auto before = task.GetWrapper();

    EXPECT_THROW(tracker.UpdateWrapper(Work()), std::bad_function_call);

    EXPECT_NE(task.GetWrapper(), before);
}

TEST(TrackerImpl, LetsTheTaskBeforeGoUncancelled) {
    Task first = MakeTask(L"First", [] {});
    {
        TrackerImpl tracker;
        tracker.SetTask(ScheduledTask(first, Now(), kOnce));
        tracker.SetTask(ScheduledTask(MakeTask(L"Second", [] {}), Now(), kOnce));
    }
    EXPECT_FALSE(first.IsCancelled());
}

TEST(TrackerImpl, ResetsARecurrentTaskAfterEveryRun) {
    TrackerImpl tracker;
    Task task = MakeTask(L"Again", [] {});
    tracker.SetTask(ScheduledTask(task, Now(), 1s));
    const auto first = task.GetWrapper();

    tracker.UpdateWrapper(Work([] {}));
    const auto second = task.GetWrapper();
    EXPECT_THROW(tracker.UpdateWrapper(Work([] { throw 1; })), int);
    const auto third = task.GetWrapper();

    EXPECT_NE(first, second);
    EXPECT_NE(second, third);
}

TEST(TrackerImpl, ResetsItsTaskBeforeTheWorkIsDestroyed) {
    TrackerImpl tracker;
    Task task = MakeTask(L"Order", [] {});
    tracker.SetTask(ScheduledTask(task, Now(), 1s));
    const auto before = task.GetWrapper();
    bool wasReset = false;

    tracker.UpdateWrapper(Work([end = AtEnd([&] { wasReset = task.GetWrapper() != before; })] {}));

    EXPECT_TRUE(wasReset);
}

TEST(TrackerImpl, NeverResetsATaskThatRunsOnce) {
    TrackerImpl tracker;
    Task task = MakeTask(L"Once", [] {});
    tracker.SetTask(ScheduledTask(task, Now(), kOnce));
    const auto before = task.GetWrapper();

    tracker.UpdateWrapper(Work([] {}));

    EXPECT_EQ(task.GetWrapper(), before);
}

TEST(TrackerImpl, ReportsAFailedResetTwiceAndSwallowsIt) {
    TrackerImpl tracker;
    tracker.SetTask(ScheduledTask(Task(L"Stubborn", std::make_shared<NotRenewable>()), Now(), 1s));
    const RecordedReports reports;

    EXPECT_NO_THROW(tracker.UpdateWrapper(Work([] {})));

    const auto records = reports.Matching(L"ScopedReset.dtor");
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].format, L"Task reschedule failed in thread [0x%x (%d)] of process [0x%x (%d)]. %s");
    const unsigned thread = ::GetCurrentThreadId();
    const unsigned process = ::GetCurrentProcessId();
    EXPECT_EQ(records[0].arguments,
              Arguments(thread, static_cast<int>(thread), process, static_cast<int>(process), L"no renewal"));
    EXPECT_NE(records[0].text.find(L"no renewal"), std::wstring::npos) << "the reason is narrow text";
    EXPECT_EQ(records[1].format, L"Failed Task name = (%s)");
    EXPECT_EQ(records[1].arguments, Arguments(L"Stubborn"));
    for (const auto& record : records) {
        EXPECT_EQ(record.severity, 4);
        EXPECT_EQ(record.kind, 16);
    }
}

TEST(TrackerImpl, CancelsItsTaskAndWaitsForItsRunWhenItEnds) {
    Gate running;
    bool ended = false;
    Task task = MakeTask(L"Tracked", [&] {
        running.Open();
        try {
            CancellableSleep(kForever);
        } catch (const CancelRequestedException&) {
            ended = true;
            throw;
        }
    });
    PlainThread worker([&] { task(); });
    {
        TrackerImpl tracker;
        tracker.SetTask(ScheduledTask(task, Now(), kOnce));
        running.Wait();
    }
    EXPECT_TRUE(ended);
    worker.Join();
}

}  // namespace
