// A wrapper with its future.
#pragma once

#include <functional>
#include <memory>

#include "concurrency/tasks/task_wrapper.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {

using Callable = std::function<void()>;
using Wrapper = Orvane::Internal::TaskWrapper<void, Callable>;

struct Bound {
    explicit Bound(const Callable& callable) : wrapper(std::make_shared<Wrapper>(callable, future)) {}

    void Run() { (*wrapper)(); }

    FuturePointer future{new Future()};
    std::shared_ptr<Wrapper> wrapper;
};

}  // namespace Zarvo::Test
