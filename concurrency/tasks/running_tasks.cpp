#include "concurrency/tasks/running_tasks.h"

#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// Thread ids are multiples of four.
RunningTaskShard& ShardOfThread(DWORD thread) noexcept {
    auto& shards = RunningTaskShards();
    return shards[thread / 4 % shards.size()];
}

}  // namespace

// Without a destructor: the end of the process may have killed a thread that held one of them.
std::array<RunningTaskShard, 16>& RunningTaskShards() noexcept {
    static NeverDestroyed<std::array<RunningTaskShard, 16>> shards;
    return *shards;
}

RunningTask::RunningTask(const wchar_t* name, std::shared_ptr<IFutureState> future, const std::atomic<bool>& isTracked)
    : m_name(name),
      m_future(std::move(future)),
      m_isTracked(isTracked),
      m_thread(::GetCurrentThreadId()),
      m_startedAt(CoarseClock::Ticks()) {
    RunningTaskShard& shard = ShardOfThread(m_thread);
    const RankedLock lock(shard.mutex);
    shard.running.PushBack(*this);
}

RunningTask::~RunningTask() {
    const RankedLock lock(ShardOfThread(m_thread).mutex);
    Unlink();
}

}  // namespace Orvane::Internal
