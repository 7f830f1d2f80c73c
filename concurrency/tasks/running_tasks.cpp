#include "concurrency/tasks/running_tasks.h"

#include <cstddef>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/run_list.h"

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

RunningTask::RunningTask(const wchar_t* name, bool isTask, std::shared_ptr<IFutureState> future,
                         const std::atomic<bool>& isTracked)
    : m_entry{name, static_cast<std::uint32_t>(::GetCurrentThreadId()), isTask ? 1U : 0U, CoarseClock::Ticks()},
      m_future(std::move(future)),
      m_isTracked(isTracked) {
    RunningTaskShard& shard = ShardOfThread(Thread());
    const RankedLock lock(shard.mutex);
    shard.running.PushBack(*this);
}

RunningTask::~RunningTask() {
    const RankedLock lock(ShardOfThread(Thread()).mutex);
    Unlink();
}

namespace {

using Links = ListHook<RunningTag>;
constexpr std::uint32_t kEntry = sizeof(Links);  // the entry stands right behind its links

static_assert(alignof(RunningEntry) <= alignof(Links));

ZarvoRunList Describe() noexcept {
    const auto& shards = RunningTaskShards();
    const auto headInPart =
        reinterpret_cast<const char*>(&shards.front().running) - reinterpret_cast<const char*>(&shards.front());
    return {{'Z', 'A', 'R', 'V', 'O', 'R', 'U', 'N'},
            1,
            sizeof(ZarvoRunList),
            shards.data(),
            static_cast<std::uint32_t>(shards.size()),
            sizeof(RunningTaskShard),
            static_cast<std::uint32_t>(headInPart),
            sizeof(void*),
            kEntry + offsetof(RunningEntry, name),
            kEntry + offsetof(RunningEntry, thread),
            kEntry + offsetof(RunningEntry, isTask),
            kEntry + offsetof(RunningEntry, startedAt)};
}

}  // namespace

}  // namespace Orvane::Internal

// Written when the module is loaded, before any other can use it.
const ZarvoRunList zarvo_run_list = Orvane::Internal::Describe();
