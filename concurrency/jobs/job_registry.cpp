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

// Returns false if there is not enough room for all.
bool AppendLive(JobShard& shard, std::vector<std::shared_ptr<Cancellable>>& live) noexcept {
    const RankedLock lock(shard.mutex);
    for (Cancellable* next = shard.live.Front(); next != nullptr; next = shard.live.Next(*next)) {
        if (live.size() == live.capacity()) {
            return false;
        }
        if (auto self = next->Self()) {
            live.push_back(std::move(self));
        }
    }
    return true;
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

std::vector<std::shared_ptr<Cancellable>> LiveJobsAndGroups() {
    std::vector<std::shared_ptr<Cancellable>> live;
    for (JobShard& shard : AllShards()) {
        // Room for all is made before the lock is taken: under it nothing may fail, or be destroyed.
        const std::size_t before = live.size();
        while (!AppendLive(shard, live)) {
            live.resize(before);
            live.reserve(2 * live.capacity() + 16);
        }
    }
    return live;
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
