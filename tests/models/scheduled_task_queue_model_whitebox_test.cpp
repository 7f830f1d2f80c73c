// The scheduler's queue gives out what is due, the earliest first, whatever the clock does.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "concurrency/scheduler/scheduled_task_queue.h"
#include "concurrency/tasks/make_task.h"
#include "tests/models/sequences.h"
#include "tests/scheduler/moments.h"
#include "tests/support/fake_wall_clock.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace std::chrono_literals;

// The number says how far: of a start from now, of an interval, of the clock's step.
enum class QueueOp { PushOnce, PushRecurrent, PushBackwards, Forward, Back, Pop, PutBack, CancelTaken, Stop, Count };

const char* NameOf(QueueOp op) {
    constexpr const char* kNames[] = {"PushOnce", "PushRecurrent", "PushBackwards", "Forward", "Back",
                                      "Pop",      "PutBack",       "CancelTaken",   "Stop"};
    return kNames[static_cast<int>(op)];
}

// What a queue holds: starts alone, because tasks of one start may come in any order.
class QueueScene {
  public:
    QueueScene() : m_now(k1970 + 24h), m_clock(m_now) {}

    void Do(QueueOp op, int number) {
        switch (op) {
            case QueueOp::PushOnce: Push(m_now + (number - 3) * 1s, kOnce); break;
            case QueueOp::PushRecurrent: Push(m_now + (number - 3) * 1s, number * 1s); break;
            case QueueOp::PushBackwards: Push(m_now, -(number + 1) * 1s); break;
            case QueueOp::Forward: MoveClock(number * 1s); break;
            case QueueOp::Back: MoveClock(-number * 1s); break;
            case QueueOp::Pop: Pop(); break;
            case QueueOp::PutBack: PutBack(); break;
            case QueueOp::CancelTaken:
                if (m_taken) {
                    m_taken->Cancel();
                }
                break;
            default:
                m_queue.Stop();
                m_isStopped = true;
                m_lastDue = std::min(m_lastDue, m_now);
                break;
        }
        const ScheduleLoad load = m_queue.GetLoad();
        RC_ASSERT(load.entries == m_starts.size());
        RC_ASSERT((m_starts.empty() || load.earliest == *m_starts.begin()));
    }

  private:
    void Push(TimePoint start, Duration interval) {
        m_queue.Push(ScheduledTask(MakeTask(L"task", [] {}), start, interval));
        m_starts.insert(start);
    }

    void MoveClock(Duration by) {
        m_now += by;
        m_clock.Set(m_now);
    }

    void Pop() {
        ScheduledTask due;
        const bool isDue = !m_starts.empty() && *m_starts.begin() <= std::min(m_now, m_lastDue);
        RC_ASSERT(m_queue.PopExpired(due) == isDue);
        if (isDue) {
            RC_ASSERT(due.GetStartTime() == *m_starts.begin());
            m_starts.erase(m_starts.begin());
            m_taken = due;
        }
    }

    // As the scheduler does, when it has handed the task to the pool.
    void PutBack() {
        if (!m_taken) {
            return;
        }
        const TimePoint last = m_taken->GetStartTime();
        if (m_taken->Reschedule()) {
            const TimePoint next = m_taken->GetStartTime();
            m_queue.PutBack(*m_taken, last);
            m_starts.insert(m_isStopped && next <= last ? TimePoint::max() : next);
        }
        m_taken.reset();
    }

    TimePoint m_now;
    FakeWallClock m_clock;
    ScheduledTaskQueue m_queue;
    std::optional<ScheduledTask> m_taken;

    std::multiset<TimePoint> m_starts;
    bool m_isStopped = false;
    TimePoint m_lastDue = TimePoint::max();
};

TEST(ScheduledTaskQueueModel, GivesOutWhatIsDueTheEarliestFirst) {
    CheckSequences<QueueOp>(8, [](const Steps<QueueOp>& steps) {
        QueueScene scene;
        for (const auto& [op, number] : steps) {
            scene.Do(op, number);
        }
    });
}

}  // namespace
}  // namespace Zarvo::Test
