// Each kind of wait in a Within.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <typeinfo>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/within.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// What can be waited for, and does not come before the object goes.
class Obstacles {
  public:
    Obstacles() { m_areOwned.Wait(); }
    ~Obstacles() {
        m_mayLetGo.Open();
        m_owner.Join();
        CloseHandle(event);
    }
    Obstacles(const Obstacles&) = delete;
    Obstacles& operator=(const Obstacles&) = delete;

    fifo_mutex fifo;
    interprocess_mutex interprocess;
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Job<void> job = RunSleeper();
    JobGroup group{L"group"};
    GroupJob<void> member = group.Run(L"member", [] { SleepUntilAsked(); });

  private:
    Gate m_areOwned;
    Gate m_mayLetGo;
    PlainThread m_owner{[this] {
        const std::lock_guard own(fifo);
        const std::lock_guard also(interprocess);
        m_areOwned.Open();
        m_mayLetGo.Wait();
    }};
};

struct WaitKind {
    const char* name;
    void (*wait)(Obstacles& obstacles);
};

std::ostream& operator<<(std::ostream& stream, const WaitKind& kind) {
    return stream << kind.name;
}

const WaitKind kWaits[] = {
    {"Sleep", [](Obstacles&) { CancellableSleep(INFINITE); }},
    {"Handle", [](Obstacles& to) { CancellableWaitForSingleObject(to.event, INFINITE); }},
    {"Handles",
     [](Obstacles& to) {
         const HANDLE handles[] = {to.event, to.event};
         CancellableWaitForMultipleObjects(2, handles, INFINITE);
     }},
    {"FifoMutex", [](Obstacles& to) { to.fifo.lock(); }},
    {"FifoMutexInTime", [](Obstacles& to) { static_cast<void>(to.fifo.try_lock_for(1h)); }},
    {"InterprocessMutex", [](Obstacles& to) { to.interprocess.lock(); }},
    {"Condition",
     [](Obstacles& to) {
         std::unique_lock lock(to.mutex);
         for (;;) {
             Internal::CancellableConditionWait(to.mutex, to.condition, nullptr, [&] { to.condition.wait(lock); });
         }
     }},
    {"Job", [](Obstacles& to) { to.job.Wait(); }},
    {"JobInTime", [](Obstacles& to) { static_cast<void>(to.job.WaitFor(1h)); }},
    {"AnyJob", [](Obstacles& to) { static_cast<void>(WhenAny(to.job, to.member)); }},
    {"Group", [](Obstacles& to) { to.group.Wait(); }},
    {"GroupIteration",
     [](Obstacles& to) {
         for (const EndedJob& ended : to.group) {
             ADD_FAILURE() << ended.index;
         }
     }},
    {"Loop",
     [](Obstacles&) {
         int items[4] = {};
         ForEach(L"loop", items, [](int&) { SleepUntilAsked(); });
     }},
    {"CancellationPoint",
     [](Obstacles&) {
         for (;;) {
             CancellationPoint();
         }
     }},
};

class WaitInALimit : public JobTest, public testing::WithParamInterface<WaitKind> {};

TEST_P(WaitInALimit, LeavesAJobAndNamesTheLimit) {
    Obstacles obstacles;
    auto job = Run(L"job", [&obstacles] {
        const std::string what = MessageOf<TimeLimitException>([&] {
            const Within limit(L"Limit", 20ms);
            GetParam().wait(obstacles);
        });
        CancellationPoint();  // the job itself was not asked
        return what;
    });
    EXPECT_EQ(job.Get(), "TimeLimitException: the time limit of 20 ms of Limit");
}

TEST_P(WaitInALimit, LeavesOutsideARun) {
    Obstacles obstacles;
    const std::string what = MessageOf<TimeLimitException>([&] {
        const Within limit(L"Limit", 20ms);
        GetParam().wait(obstacles);
    });
    EXPECT_EQ(what, "TimeLimitException: the time limit of 20 ms of Limit");
    EXPECT_FALSE(IsCancellationRequested());
}

TEST_P(WaitInALimit, LeavesWhenTheJobIsAsked) {
    Obstacles obstacles;
    Gate isInside;
    std::string kind;
    auto job = Run(L"job", [&] {
        const Within limit(1h);
        isInside.Open();
        try {
            GetParam().wait(obstacles);
        } catch (const CancelRequestedException& exception) {
            kind = typeid(exception).name();
            throw;
        }
    });
    isInside.Wait();
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(kind, typeid(CancelRequestedException).name());
}

TEST_P(WaitInALimit, OfAJobLeavesAsARequestThatNamesTheLimit) {
    Obstacles obstacles;
    Gate begun;  // a job that is asked before would not run
    Gate mayBegin;
    std::string what;
    auto job = Run(L"Answer", [&] {
        begun.Open();
        mayBegin.Wait();
        try {
            GetParam().wait(obstacles);
        } catch (const CancelRequestedException& exception) {
            what = exception.what();
            throw;
        }
    });
    begun.Wait();
    job.CancelAfter(20ms);
    mayBegin.Open();
    EXPECT_EQ(MessageOf<TimeLimitException>([&] { job.Get(); }),
              "TimeLimitException: the time limit of 20 ms of Answer");
    EXPECT_EQ(what, "TimeLimitRequestException: the time limit of 20 ms of Answer");
}

INSTANTIATE_TEST_SUITE_P(Each, WaitInALimit, testing::ValuesIn(kWaits),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
