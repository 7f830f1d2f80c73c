// What docs/cancellation-points.md shows, as a reader would try it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"

namespace {

using namespace std::chrono_literals;
using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

class CancellationGuide : public testing::Test {
  protected:
    ~CancellationGuide() override { m_part.Cancel(); }

    // A part that leaves only when it is asked to, and not at once.
    void DoPart() {
        m_partRuns.Open();
        try {
            CancellableSleep(3'600'000);
        } catch (const CancelRequestedException&) {
            std::this_thread::sleep_for(20ms);
            m_partHasEnded = true;
            throw;
        }
    }

    void StartPart(std::shared_ptr<FutureImpl<void>>& outcome) {
        m_part = MakeTask(L"Part", [this] { DoPart(); }, outcome);
        GlobalThreadPool::Queue(m_part);
        m_partRuns.Wait();
    }

    void WaitForPart(Task part, const std::shared_ptr<FutureImpl<void>>& outcome) {
        const auto passOn = FutureNotificationAdapter::CreateInstance(outcome);
        m_passesOn.Open();
        try {
            part.Wait();
        } catch (const CancelRequestedException&) {
            part.Cancel();
            part.Wait();
            throw;
        }
    }

    const ConcurrencyLifetime m_lifetime;
    Gate m_partRuns;
    Gate m_passesOn;
    std::atomic<bool> m_partHasEnded = false;
    Task m_part;
};

TEST_F(CancellationGuide, RequestIsPassedOnToThePartThatIsWaitedFor) {
    bool waitedForTheEnd = false;
    TaskThread whole([&] {
        std::shared_ptr<FutureImpl<void>> outcome;
        StartPart(outcome);
        try {
            WaitForPart(m_part, outcome);
        } catch (const CancelRequestedException&) {
        }
        waitedForTheEnd = m_partHasEnded;
    });
    m_passesOn.Wait();

    whole.Cancel();

    whole.Join();
    EXPECT_TRUE(waitedForTheEnd);
}

TEST_F(CancellationGuide, RequestThatCameBeforeReachesThePartToo) {
    bool waitedForTheEnd = false;
    Gate requested;
    TaskThread whole([&] {
        std::shared_ptr<FutureImpl<void>> outcome;
        StartPart(outcome);
        requested.Wait();
        try {
            WaitForPart(m_part, outcome);
        } catch (const CancelRequestedException&) {
            waitedForTheEnd = m_partHasEnded;
            throw;
        }
    });

    whole.Cancel();
    requested.Open();

    EXPECT_TRUE(whole.EndedCancelled());
    EXPECT_TRUE(waitedForTheEnd);
}

}  // namespace
