// The live jobs and groups, and the locks of their fields: a few for all, chosen by address, because a mutex for each job would
// cost more than the job.
//
// Threads: any.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/jobs/cancellable.h"

namespace Orvane::Internal {

struct JobShard {
    using Mutex = RankedMutex<AdaptiveMutex, LockRank::Job>;

    Mutex mutex;
    IntrusiveList<Cancellable, LiveTag> live ORVANE_GUARDED_BY(mutex);
    IntrusiveList<Cancellable, LiveTag> beingAsked
        ORVANE_GUARDED_BY(mutex);  // live, too: a request has not come to them yet
    bool isClosed ORVANE_GUARDED_BY(mutex) = false;
};

std::array<JobShard, 16>& JobShards() noexcept;

JobShard& ShardOf(const Cancellable& object) noexcept;

// Errors: Unexpected if the library is not initialised, or the last uninitialisation has begun.
void Enlist(Cancellable& object);

// Needs the shard's mutex. Nothing if it is not listed.
void Delist(Cancellable& object) noexcept;

// All that are live, at some moment of the call. Errors: std::bad_alloc.
std::vector<std::shared_ptr<Cancellable>> LiveJobsAndGroups();

// The first pass of a request for all that are live, the newest first, to a step of CoarseClock. Holds no lock while it asks.
void AskJobs(const AskReason& reason, AskedList& asked) noexcept;

// Refuses new jobs, and asks all that are live with CancelCause::Shutdown, all at once. Holds no lock while it asks.
void CloseJobs() noexcept;

// Accepts jobs again.
void ReopenJobs() noexcept;

}  // namespace Orvane::Internal
