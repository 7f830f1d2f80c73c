// Does something at the moment when the last copy of a callable is destroyed.
//
//     MakeTask(L"task", [end = AtEnd([&] { destroyed = true; })] {});
#pragma once

#include <memory>
#include <utility>

namespace Zarvo::Test {

template <typename Action>
std::shared_ptr<void> AtEnd(Action action) {
    return std::shared_ptr<void>(nullptr, [action = std::move(action)](void*) mutable { action(); });
}

}  // namespace Zarvo::Test
