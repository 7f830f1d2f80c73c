#include "concurrency/tasks/empty_task_state.h"

#include <cstddef>

#include "concurrency/base/never_destroyed.h"
#include "concurrency/tasks/null_task_wrapper.h"

namespace Orvane::Internal {

namespace {

// Gives out one block for each T, for good: the one for the object and its owners' count.
template <typename T>
struct OnlyBlock {
    using value_type = T;

    OnlyBlock() = default;
    template <typename Other>
    explicit OnlyBlock(const OnlyBlock<Other>&) noexcept {}

    T* allocate(std::size_t) noexcept {
        alignas(T) static std::byte block[sizeof(T)];
        return reinterpret_cast<T*>(block);
    }
    void deallocate(T*, std::size_t) noexcept {}

    friend bool operator==(const OnlyBlock&, const OnlyBlock&) = default;
};

}  // namespace

const std::shared_ptr<ITaskState>& EmptyTaskState() noexcept {
    static NeverDestroyed<std::shared_ptr<ITaskState>> state(
        std::allocate_shared<NullTaskWrapper>(OnlyBlock<NullTaskWrapper>()));
    return *state;
}

}  // namespace Orvane::Internal
