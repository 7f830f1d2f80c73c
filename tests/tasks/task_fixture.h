// Task states whose steps a test decides, and ways to look into a task.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/null_task_wrapper.h"
#include "concurrency/tasks/task.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {

using Orvane::Internal::IFutureState;
using Orvane::Internal::ITaskState;
using Orvane::Internal::Task;

// A task state without the machinery of a wrapper: `run` is all that running it does.
class ScriptedState : public ITaskState {
  public:
    explicit ScriptedState(std::shared_ptr<IFutureState> stateFuture) : future(std::move(stateFuture)) {}
    ~ScriptedState() override {
        if (destroyed) {
            destroyed();
        }
    }

    void operator()() override { run(); }
    std::shared_ptr<ITaskState> Recreate() override { return recreate(); }
    std::shared_ptr<IFutureState> GetFuture() override { return future; }

    std::function<void()> run = [] {};
    std::function<std::shared_ptr<ITaskState>()> recreate = [] { return nullptr; };
    std::function<void()> destroyed;
    std::shared_ptr<IFutureState> future;
};

// A task state around a future in the given state, whose run is on another thread.
inline std::shared_ptr<ScriptedState> ScriptedIn(State state) {
    return std::make_shared<ScriptedState>(AttachedFutureIn(state));
}

// Whether the task has been emptied.
inline bool IsEmptied(Task task) {
    return std::dynamic_pointer_cast<Orvane::Internal::NullTaskWrapper>(task.GetWrapper()) != nullptr;
}

inline void ExpectEmptied(Task task) {
    EXPECT_TRUE(IsEmptied(task));
    EXPECT_TRUE(task.IsCancelled());
    EXPECT_FALSE(task.IsBusy());
}

}  // namespace Zarvo::Test
