#include "concurrency/tasks/pooled_task.h"

#include "concurrency/tasks/task_impl.h"

namespace Orvane::Internal {

namespace {

constinit std::atomic<std::uint64_t> g_placeOfEmptyTasks = 0;

// A place is one word: the pool in its upper half, the number of entries there in the lower.
constexpr std::uint64_t PoolPart(std::uint32_t pool) {
    return std::uint64_t{pool} << 32;
}
constexpr std::uint32_t PoolOf(std::uint64_t place) {
    return static_cast<std::uint32_t>(place >> 32);
}
constexpr std::uint32_t CountOf(std::uint64_t place) {
    return static_cast<std::uint32_t>(place);
}

}  // namespace

PooledTask::PooledTask(const Task& task) : m_task(task) {}

PooledTask::~PooledTask() {
    auto& place = PlaceOf(m_task);
    std::uint64_t before = place.load();
    while (m_pool != 0 && PoolOf(before) == m_pool && !place.compare_exchange_weak(before, before - 1)) {
    }
}

void PooledTask::Enter(std::uint32_t pool) {
    m_pool = pool;
    auto& place = PlaceOf(m_task);
    std::uint64_t before = place.load();
    while (PoolOf(before) <= m_pool) {
        const std::uint64_t after = PoolOf(before) == m_pool ? before + 1 : PoolPart(m_pool) + 1;
        if (place.compare_exchange_weak(before, after)) {
            return;
        }
    }
}

bool PooledTask::IsIn(std::uint32_t pool, const Task& task) {
    const std::uint64_t place = PlaceOf(task).load();
    return PoolOf(place) == pool && CountOf(place) != 0;
}

std::atomic<std::uint64_t>& PooledTask::PlaceOf(const Task& task) {
    return task.m_impl ? task.m_impl->PlaceInPool() : g_placeOfEmptyTasks;
}

}  // namespace Orvane::Internal
