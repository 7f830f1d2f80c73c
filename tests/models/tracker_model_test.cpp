// Copies of a tracker share what they track, and the last one ends it.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/tracker.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/make_task.h"
#include "tests/models/acting_thread.h"
#include "tests/models/sequences.h"
#include "tests/scheduler/moments.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;
using namespace Orvane::Internal;

// The number says which of three trackers and, its upper part, which of three tasks or which other tracker.
enum class TrackerOp { Make, Copy, Move, Drop, SetTask, Cancel, Wait, RunTask, Count };

const char* NameOf(TrackerOp op) {
    constexpr const char* kNames[] = {"Make", "Copy", "Move", "Drop", "SetTask", "Cancel", "Wait", "RunTask"};
    return kNames[static_cast<int>(op)];
}

constexpr std::size_t kTrackers = 3;

class TrackerScene {
  public:
    TrackerScene() {
        for (std::size_t i = 0; i < kTrackers; ++i) {
            m_tasks[i].task = ScheduledTask(MakeTask(L"task", [this, i] { ++m_tasks[i].calls; }), k1970, kOnce);
        }
    }

    void Do(TrackerOp op, int number) {
        const auto at = static_cast<std::size_t>(number) % kTrackers;
        const auto other = static_cast<std::size_t>(number) / kTrackers;
        std::optional<Tracker>& tracker = m_trackers[at];
        switch (op) {
            case TrackerOp::Make: Assign(at, Tracker(), std::make_shared<Tracked>()); break;
            case TrackerOp::Copy:
                if (m_trackers[other]) {
                    Assign(at, *m_trackers[other], m_tracked[other]);
                }
                break;
            case TrackerOp::Move:
                if (m_trackers[other] && at != other) {
                    const auto tracked = std::exchange(m_tracked[other], nullptr);
                    Assign(at, std::move(*m_trackers[other]), tracked);
                    m_trackers[other].reset();
                }
                break;
            case TrackerOp::Drop:
                tracker.reset();
                LetGo(m_tracked[at]);
                break;
            case TrackerOp::SetTask:
                if (tracker) {
                    tracker->SetTask(m_tasks[other].task);
                    *m_tracked[at] = other;
                }
                break;
            case TrackerOp::Cancel:
                if (tracker) {
                    tracker->Cancel();
                    Cancel(*m_tracked[at]);
                }
                break;
            case TrackerOp::Wait:
                if (tracker && HasEnded(*m_tracked[at])) {
                    tracker->Wait();
                    Cancel(*m_tracked[at]);
                }
                break;
            default: {
                Task task = m_tasks[at].task.GetTask();
                task();
                m_tasks[at].expectedCalls += m_tasks[at].isCancelled || m_tasks[at].hasRun ? 0 : 1;
                m_tasks[at].hasRun = m_tasks[at].hasRun || !m_tasks[at].isCancelled;
                break;
            }
        }
        Compare();
    }

  private:
    using Tracked = std::optional<std::size_t>;  // the number of the task

    struct TaskModel {
        ScheduledTask task;
        int calls = 0;

        int expectedCalls = 0;
        bool hasRun = false;
        bool isCancelled = false;  // or waited for
    };

    template <typename Source>
    void Assign(std::size_t at, Source&& source, std::shared_ptr<Tracked> tracked) {
        if (m_trackers[at]) {
            *m_trackers[at] = std::forward<Source>(source);
        } else {
            m_trackers[at].emplace(std::forward<Source>(source));
        }
        std::swap(m_tracked[at], tracked);
        LetGo(tracked);
    }

    // The last copy ends what it tracks.
    void LetGo(std::shared_ptr<Tracked>& tracked) {
        if (tracked && tracked.use_count() == 1) {
            Cancel(*tracked);
        }
        tracked.reset();
    }

    void Cancel(const Tracked& tracked) {
        if (tracked) {
            m_tasks[*tracked].isCancelled = true;
        }
    }

    bool HasEnded(const Tracked& tracked) const {
        return !tracked || m_tasks[*tracked].hasRun || m_tasks[*tracked].isCancelled;
    }

    void Compare() {
        for (const TaskModel& task : m_tasks) {
            RC_ASSERT(task.task.IsCancelled() == task.isCancelled);
            RC_ASSERT(task.calls == task.expectedCalls);
        }
    }

    std::array<TaskModel, kTrackers> m_tasks;
    std::array<std::optional<Tracker>, kTrackers> m_trackers;
    std::array<std::shared_ptr<Tracked>, kTrackers> m_tracked;
};

TEST(TrackerModel, EndsItsTaskWithTheLastCopy) {
    const ConcurrencyLifetime lifetime;
    CheckSequences<TrackerOp>(static_cast<int>(kTrackers * kTrackers), [](const Steps<TrackerOp>& steps) {
        TrackerScene scene;
        for (const auto& [op, number] : steps) {
            scene.Do(op, number);
        }
    });
}

// What a run of a recurrent task does, and what is done between two runs.
enum class RecurrentOp { Return, Fail, CancelItself, BeAsked, Cancel, Wait, Count };

const char* NameOf(RecurrentOp op) {
    constexpr const char* kNames[] = {"Return", "Fail", "CancelItself", "BeAsked", "Cancel", "Wait"};
    return kNames[static_cast<int>(op)];
}

class RecurrentScene {
  public:
    explicit RecurrentScene(ActingThread& other)
        : m_other(other),
          m_task(
              MakeTask(L"recurrent", [this] { m_tracker.UpdateWrapper(std::function<void()>([this] { Body(); })); })) {
        m_tracker.SetTask(ScheduledTask(m_task, k1970, kTick));
    }

    void Do(RecurrentOp op) {
        if (op == RecurrentOp::Cancel) {
            m_tracker.Cancel();
            m_isOver = true;
        } else if (op == RecurrentOp::Wait) {
            if (m_isOver) {
                m_tracker.Wait();
            }
        } else {
            m_body = op;
            m_expectedCalls += m_isOver ? 0 : 1;
            const auto future = m_task.GetWrapper()->GetFuture();
            const bool wasOver = m_isOver;
            m_task();
            m_isOver = m_isOver || op == RecurrentOp::CancelItself || op == RecurrentOp::BeAsked;
            RC_ASSERT(wasOver || StateOf(*future) == EndOf(op));
        }
        RC_ASSERT(m_calls == m_expectedCalls);
        RC_ASSERT(m_task.IsCancelled() == m_isOver);
    }

  private:
    static State EndOf(RecurrentOp op) {
        if (op == RecurrentOp::Return) {
            return State::Normal;
        }
        return op == RecurrentOp::Fail ? State::Error : State::Cancelled;
    }

    void Body() {
        ++m_calls;
        if (m_body == RecurrentOp::Fail) {
            throw Failure(1);
        }
        if (m_body == RecurrentOp::CancelItself) {
            m_tracker.Cancel();
        }
        if (m_body == RecurrentOp::BeAsked) {
            m_other.Do([this] { m_tracker.Cancel(); });
            CancellationPoint();
        }
    }

    ActingThread& m_other;
    Task m_task;
    TrackerImpl m_tracker;
    RecurrentOp m_body{};
    int m_calls = 0;

    int m_expectedCalls = 0;
    bool m_isOver = false;
};

TEST(RecurrentTaskModel, RunsUntilItIsAsked) {
    const ConcurrencyLifetime lifetime;
    ActingThread other;
    CheckSequences<RecurrentOp>(1, [&](const Steps<RecurrentOp>& steps) {
        RecurrentScene scene(other);
        for (const auto& [op, number] : steps) {
            scene.Do(op);
        }
    });
}

}  // namespace
}  // namespace Zarvo::Test
