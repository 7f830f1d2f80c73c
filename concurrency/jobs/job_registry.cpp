#include "concurrency/jobs/job_registry.h"

#include <array>
#include <cstdint>

#include "concurrency/base/initialization_count.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/errors/misuse.h"

namespace Orvane::Internal {

namespace {

using Shards = std::array<JobShard, 16>;

// Without a destructor: the end of the process may have killed a thread that held one of them.
Shards& AllShards() noexcept {
    static NeverDestroyed<Shards> shards;
    return *shards;
}

// Moves what is there out, puts one after the other back, and asks it. Those that end meanwhile unlink themselves.
void AskAll(JobShard& shard, AskedList& asked) noexcept {
    IntrusiveList<Cancellable, LiveTag> waiting;
    RankedLock lock(shard.mutex);
    waiting.TakeAll(shard.live);
    while (Cancellable* const next = waiting.PopFront()) {
        shard.live.PushBack(*next);
        if (auto self = next->Self()) {
            const ReleasedLock released(lock, shard.mutex);
            self->Ask({CancelCause::Shutdown, nullptr}, asked);
            self.reset();
        }
    }
}

}  // namespace

JobShard& ShardOf(const Cancellable& object) noexcept {
    // Jobs are blocks of a few hundred bytes: the lowest bits say nothing.
    const auto address = reinterpret_cast<std::uintptr_t>(&object);
    Shards& shards = AllShards();
    return shards[((address >> 6) ^ (address >> 12)) % shards.size()];
}

void Enlist(Cancellable& object) {
    if (g_publishedInitializationCount.load(std::memory_order_acquire) <= 0) {
        ThrowNotInitialized();
    }
    JobShard& shard = ShardOf(object);
    const RankedLock lock(shard.mutex);
    if (shard.isClosed) {
        ThrowUninitializing();
    }
    shard.live.PushBack(object);
}

void Delist(Cancellable& object) noexcept {
    static_cast<ListHook<LiveTag>&>(object).Unlink();
}

void CloseJobs() noexcept {
    for (JobShard& shard : AllShards()) {
        const RankedLock lock(shard.mutex);
        shard.isClosed = true;
    }
    AskedList asked;
    for (JobShard& shard : AllShards()) {
        AskAll(shard, asked);
    }
}

void ReopenJobs() noexcept {
    for (JobShard& shard : AllShards()) {
        const RankedLock lock(shard.mutex);
        shard.isClosed = false;
    }
}

}  // namespace Orvane::Internal
