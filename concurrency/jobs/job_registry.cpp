#include "concurrency/jobs/job_registry.h"

#include <algorithm>
#include <cstdint>

#include "concurrency/base/clock.h"
#include "concurrency/base/initialization_count.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/errors/misuse.h"

namespace Orvane::Internal {

namespace {

// How long ago the object was enlisted that AskNewest() would ask; kNone if there is none.
constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::uint32_t AgeOfNewest(const JobShard& shard, std::uint32_t now) noexcept ORVANE_REQUIRES(shard.mutex) {
    const Cancellable* const newest = shard.beingAsked.Back();
    return newest != nullptr ? (std::min)(now - newest->enlistedAt, kNone - 1) : kNone;
}

// Puts the newest that is being asked back, and asks it. Those that end meanwhile unlink themselves. Returns the age of the next.
std::uint32_t AskNewest(JobShard& shard, std::uint32_t now, const AskReason& reason, AskedList& asked) noexcept {
    std::shared_ptr<Cancellable> self;
    std::uint32_t age = kNone;
    {
        const RankedLock lock(shard.mutex);
        if (Cancellable* const newest = shard.beingAsked.PopBack()) {
            shard.live.PushFront(*newest);
            self = newest->Self();
        }
        age = AgeOfNewest(shard, now);
    }
    if (self) {
        self->Ask(reason, asked);
    }
    return age;
}

// Returns false if there is not enough room for all.
bool AppendLive(JobShard& shard, std::vector<std::shared_ptr<Cancellable>>& live) noexcept {
    const RankedLock lock(shard.mutex);
    for (const auto* const list : {&shard.live, &shard.beingAsked}) {
        for (Cancellable* next = list->Front(); next != nullptr; next = list->Next(*next)) {
            if (live.size() == live.capacity()) {
                return false;
            }
            if (auto self = next->Self()) {
                live.push_back(std::move(self));
            }
        }
    }
    return true;
}

}  // namespace

// Without a destructor: the end of the process may have killed a thread that held one of them.
std::array<JobShard, 16>& JobShards() noexcept {
    static NeverDestroyed<std::array<JobShard, 16>> shards;
    return *shards;
}

JobShard& ShardOf(const Cancellable& object) noexcept {
    // Jobs are blocks of a few hundred bytes: the lowest bits say nothing.
    const auto address = reinterpret_cast<std::uintptr_t>(&object);
    auto& shards = JobShards();
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
    object.enlistedAt = static_cast<std::uint32_t>(CoarseClock::Ticks());
    shard.live.PushBack(object);
}

void Delist(Cancellable& object) noexcept {
    static_cast<ListHook<LiveTag>&>(object).Unlink();
}

std::vector<std::shared_ptr<Cancellable>> LiveJobsAndGroups() {
    std::vector<std::shared_ptr<Cancellable>> live;
    for (JobShard& shard : JobShards()) {
        // Room for all is made before the lock is taken: under it nothing may fail, or be destroyed.
        const std::size_t before = live.size();
        while (!AppendLive(shard, live)) {
            live.resize(before);
            live.reserve(2 * live.capacity() + 16);
        }
    }
    return live;
}

void AskJobs(const AskReason& reason, AskedList& asked) noexcept {
    const auto now = static_cast<std::uint32_t>(CoarseClock::Ticks());
    auto& shards = JobShards();
    std::array<std::uint32_t, 16> ages{};
    for (std::size_t i = 0; i < shards.size(); ++i) {
        const RankedLock lock(shards[i].mutex);
        shards[i].beingAsked.TakeAll(shards[i].live);
        ages[i] = AgeOfNewest(shards[i], now);
    }
    for (;;) {
        const auto youngest = std::min_element(ages.begin(), ages.end());
        if (*youngest == kNone) {
            return;
        }
        *youngest = AskNewest(shards[static_cast<std::size_t>(youngest - ages.begin())], now, reason, asked);
    }
}

void CloseJobs() noexcept {
    for (JobShard& shard : JobShards()) {
        const RankedLock lock(shard.mutex);
        shard.isClosed = true;
    }
    AskedList asked;
    AskJobs({CancelCause::Shutdown, nullptr}, asked);
}

void ReopenJobs() noexcept {
    for (JobShard& shard : JobShards()) {
        const RankedLock lock(shard.mutex);
        shard.isClosed = false;
    }
}

}  // namespace Orvane::Internal
