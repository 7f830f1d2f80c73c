// Tasks that pass their cancellation on to each other, in a circle.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <utility>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Passes a request on as soon as both requests of the circle are on their way.
class MeetingNotifier : public AbstractCancelNotifier {
  public:
    MeetingNotifier(Countdown& meeting, FuturePointer next) : m_meeting(meeting), m_next(std::move(next)) {}

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool&) override {
        lock.unlock();
        m_meeting.Meet();
        m_next->RequestCancel();
    }

  private:
    Countdown& m_meeting;
    FuturePointer m_next;
};

// Each request holds its own future's mutex and goes for the other's.
TEST(CancelRing, TwoRequestsThatMeetDoNotWaitForEachOther) {
    const FuturePointer left = FutureIn(State::Busy);
    const FuturePointer right = FutureIn(State::Busy);
    Countdown meeting(2);
    const auto fromLeft = std::make_shared<MeetingNotifier>(meeting, right);
    const auto fromRight = std::make_shared<MeetingNotifier>(meeting, left);
    left->GetCancellationObject()->RegisterNotifier(fromLeft);
    right->GetCancellationObject()->RegisterNotifier(fromRight);

    PlainThread first([&] { left->RequestCancel(); });
    PlainThread second([&] { right->RequestCancel(); });
    ASSERT_TRUE(Eventually([&] { return first.HasEnded() && second.HasEnded(); }));
    EXPECT_EQ(StateOf(*left), State::Cancelling);
    EXPECT_EQ(StateOf(*right), State::Cancelling);
}

// The same, and each request comes from the other's run, which it would come back to.
TEST(CancelRing, TwoRunsThatCancelEachOtherDoNotWaitForEachOther) {
    Gate bothKnown;
    Countdown bothListen(2);
    Countdown meeting(2);
    std::unique_ptr<TaskThread> left;
    std::unique_ptr<TaskThread> right;
    const auto cancel = [&](const std::unique_ptr<TaskThread>& other) {
        bothKnown.Wait();
        const auto toOther = std::make_shared<MeetingNotifier>(meeting, other->Future());
        GetCancellationObject()->RegisterNotifier(toOther);
        bothListen.Meet();
        other->Future()->RequestCancel();
    };
    left = std::make_unique<TaskThread>([&] { cancel(right); });
    right = std::make_unique<TaskThread>([&] { cancel(left); });
    bothKnown.Open();

    ASSERT_TRUE(Eventually([&] { return !left->IsRunning() && !right->IsRunning(); }));
    EXPECT_TRUE(left->EndedCancelled());
    EXPECT_TRUE(right->EndedCancelled());
}

// Two tasks, each of which passes its cancellation on to the other and goes on until it is cancelled itself.
class Ring {
  public:
    Ring() {
        m_left = std::make_unique<TaskThread>([this] { PassOnTo(m_right); });
        m_right = std::make_unique<TaskThread>([this] { PassOnTo(m_left); });
        m_bothKnown.Open();
        m_bothListen.Wait();
    }

    TaskThread& Left() { return *m_left; }
    TaskThread& Right() { return *m_right; }

  private:
    void PassOnTo(const std::unique_ptr<TaskThread>& next) {
        m_bothKnown.Wait();
        const auto notifier = FutureNotificationAdapter::CreateInstance(next->Future());
        m_bothListen.Arrive();
        for (;;) {
            CancellationPoint();
            PauseBriefly();
        }
    }

    Gate m_bothKnown;
    Countdown m_bothListen{2};
    std::unique_ptr<TaskThread> m_left;
    std::unique_ptr<TaskThread> m_right;
};

TEST(CancelRing, OneRequestReachesBothAndStopsThere) {
    Ring ring;
    ring.Left().Future()->RequestCancel();

    EXPECT_TRUE(ring.Left().EndedCancelled());
    EXPECT_TRUE(ring.Right().EndedCancelled());
}

TEST(CancelRing, CancelledFromTwoThreadsAtOnceEndsCancelled) {
    for (int round = 0; round < 25; ++round) {
        Ring ring;
        Countdown start(2);
        PlainThread first([&] {
            start.Meet();
            ring.Left().Future()->RequestCancel();
        });
        PlainThread second([&] {
            start.Meet();
            ring.Right().Future()->RequestCancel();
        });
        ASSERT_TRUE(Eventually([&] { return first.HasEnded() && second.HasEnded(); }));
        EXPECT_TRUE(ring.Left().EndedCancelled());
        EXPECT_TRUE(ring.Right().EndedCancelled());
    }
}

}  // namespace
