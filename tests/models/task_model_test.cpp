// A task runs as often as it may, and says so, in every order of runs, requests, resets and waits.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/models/acting_thread.h"
#include "tests/models/sequences.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;
using namespace Orvane::Internal;

// Runs say what the callable does; the number says through which of two handles.
enum class TaskOp {
    RunAndReturn,
    RunAndFail,
    RunAndThrowOwn,
    RunAndCancelItself,
    RunAndReset,
    RunAndResetAndFail,
    RunAndResetAndCancel,
    RunInside,
    RunAndBeAsked,
    RunAndReturnThoughAsked,
    Cancel,
    Reset,
    Wait,
    EndRun,
    ShareHandle,
    Count
};

const char* NameOf(TaskOp op) {
    constexpr const char* kNames[] = {"RunAndReturn",
                                      "RunAndFail",
                                      "RunAndThrowOwn",
                                      "RunAndCancelItself",
                                      "RunAndReset",
                                      "RunAndResetAndFail",
                                      "RunAndResetAndCancel",
                                      "RunInside",
                                      "RunAndBeAsked",
                                      "RunAndReturnThoughAsked",
                                      "Cancel",
                                      "Reset",
                                      "Wait",
                                      "EndRun",
                                      "ShareHandle"};
    return kNames[static_cast<int>(op)];
}

// What a task is between its resets.
struct RunModel {
    State state = State::NotStarted;
    bool hasCallable = true;
};

class TaskScene {
  public:
    explicit TaskScene(ActingThread& other) : m_other(other) {
        m_handles[0] = MakeTask(L"task", [this] { Body(); });
        m_handles[1] = m_handles[0];
        m_futures.push_back(m_handles[0].GetWrapper()->GetFuture());
        m_runs.emplace_back();
    }

    void Do(TaskOp op, int number) {
        Task& task = m_handles[static_cast<std::size_t>(number)];
        switch (op) {
            case TaskOp::Cancel:
                task.Cancel();
                CancelFromOutside();
                break;
            case TaskOp::Reset:
                task.Reset();
                ResetModel();
                break;
            case TaskOp::Wait:
                if (m_isEmptied || IsFinal(Current().state)) {
                    task.Wait();
                    m_isEmptied = true;
                }
                break;
            case TaskOp::EndRun: task.EndRun(); break;
            case TaskOp::ShareHandle: task = m_handles[static_cast<std::size_t>(1 - number)]; break;
            default:
                m_body = op;
                m_task = &task;
                Run(task);
                break;
        }
        Compare();
    }

  private:
    RunModel& Current() { return m_runs.back(); }

    bool IsCancelled() {
        return m_isCancelled || m_isEmptied || Current().state == State::Cancelling ||
               Current().state == State::Cancelled;
    }

    void Run(Task& task) {
        const int callsBefore = m_calls;
        m_expectedCalls = 0;
        if (!IsCancelled() && Current().hasCallable) {
            m_expectedCalls = 1;
            RunInModel();
        }
        task();
        RC_ASSERT(m_calls == callsBefore + m_expectedCalls);
    }

    // What the run will do to the task. A run of one that has failed before leaves its outcome as it is.
    void RunInModel() {
        const std::size_t index = m_runs.size() - 1;
        const bool isUnderWay = m_runs[index].state == State::NotStarted;
        const auto end = [&](State state) {
            if (isUnderWay) {
                m_runs[index].state = state;
            }
        };
        switch (m_body) {
            case TaskOp::RunAndFail:
            case TaskOp::RunAndThrowOwn: end(State::Error); return;
            case TaskOp::RunAndCancelItself:
                if (isUnderWay) {
                    m_isEmptied = true;
                    end(State::Cancelled);
                    return;
                }
                m_isCancelled = true;
                break;
            case TaskOp::RunAndBeAsked:
                m_isCancelled = true;
                if (isUnderWay) {
                    end(State::Cancelled);
                    return;
                }
                break;
            case TaskOp::RunAndReturnThoughAsked: m_isCancelled = true; break;
            case TaskOp::RunAndReset:
            case TaskOp::RunAndResetAndFail:
            case TaskOp::RunAndResetAndCancel:
                m_runs.emplace_back();
                m_awaitsFuture = true;
                if (m_body == TaskOp::RunAndResetAndFail) {
                    end(State::Error);
                    return;
                }
                if (m_body == TaskOp::RunAndResetAndCancel) {
                    m_runs.back().state = State::Cancelled;
                    m_isCancelled = true;
                }
                break;
            case TaskOp::RunInside: m_expectedCalls = 2; break;
            default: break;
        }
        end(State::Normal);
        m_runs[index].hasCallable = false;
    }

    // On the thread of the run.
    void Body() {
        ++m_calls;
        switch (m_body) {
            case TaskOp::RunAndFail: throw Unexpected(L"as it should");
            case TaskOp::RunAndThrowOwn: throw Failure(1);
            case TaskOp::RunAndCancelItself: m_task->Cancel(); break;
            case TaskOp::RunAndReset: m_task->Reset(); break;
            case TaskOp::RunAndResetAndFail: m_task->Reset(); throw Failure(2);
            case TaskOp::RunAndResetAndCancel:
                m_task->Reset();
                NoteFuture();
                m_task->Cancel();
                break;
            case TaskOp::RunInside:
                m_body = TaskOp::RunAndReturn;
                (*m_task)();
                break;
            case TaskOp::RunAndBeAsked:
                m_other.Do([this] { m_task->Cancel(); });
                CancellationPoint();
                break;
            case TaskOp::RunAndReturnThoughAsked: m_other.Do([this] { m_task->Cancel(); }); break;
            default: break;
        }
    }

    void CancelFromOutside() {
        if (!m_isEmptied && Current().state == State::NotStarted) {
            Current().state = State::Cancelled;
        }
        m_isCancelled = true;
    }

    void ResetModel() {
        if (!IsCancelled() && Current().hasCallable) {
            m_runs.emplace_back();
            m_awaitsFuture = true;
        }
    }

    void NoteFuture() {
        if (m_awaitsFuture) {
            m_futures.push_back(m_handles[0].GetWrapper()->GetFuture());
            m_awaitsFuture = false;
        }
    }

    void Compare() {
        NoteFuture();
        RC_ASSERT(m_futures.size() == m_runs.size());
        for (std::size_t i = 0; i < m_runs.size(); ++i) {
            RC_ASSERT(StateOf(*m_futures[i]) == m_runs[i].state);
        }
        for (Task& task : m_handles) {
            RC_ASSERT(task.IsCancelled() == IsCancelled());
            RC_ASSERT(!task.IsBusy());
        }
        RC_ASSERT(m_handles[0] == m_handles[1]);
    }

    ActingThread& m_other;
    std::array<Task, 2> m_handles;
    std::vector<std::shared_ptr<IFutureState>> m_futures;
    TaskOp m_body{};
    Task* m_task = nullptr;
    int m_calls = 0;

    std::vector<RunModel> m_runs;  // the last one is the task's
    bool m_isCancelled = false;
    bool m_isEmptied = false;
    bool m_awaitsFuture = false;
    int m_expectedCalls = 0;
};

TEST(TaskModel, RunsAsOftenAsItMay) {
    const ConcurrencyLifetime lifetime;
    ActingThread other;
    CheckSequences<TaskOp>(2, [&](const Steps<TaskOp>& steps) {
        TaskScene scene(other);
        for (const auto& [op, number] : steps) {
            scene.Do(op, number);
        }
    });
}

}  // namespace
}  // namespace Zarvo::Test
