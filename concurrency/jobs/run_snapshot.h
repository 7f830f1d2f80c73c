// The runs of jobs and tasks at one moment, copied under the locks of their lists into memory that was reserved before. What
// needs memory or takes long, as the names, is made of it later.
//
// No object of a run outlives the lock that way, but for names and reasons, which are the library's own.
//
// Threads: a snapshot belongs to one thread.
// Locks: one shard at a time, of jobs or of running tasks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "concurrency/cancellation/run.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/runs.h"

namespace Orvane::Internal {

class RunSnapshot {
  public:
    struct Entry {
        std::size_t name = 0;  // where it begins among the names
        std::shared_ptr<const JobName> above;
        DWORD thread = 0;
        std::uint64_t startedAt = 0;  // ticks of CoarseClock
        std::uint64_t askedAt = 0;
        AskReason reason;
        WaitState wait;

        const void* future = nullptr;  // of a task: as notes of waits name it
        const void* record = nullptr;  // what the room keeps of the run, if it owns or has owned anything
        const void* owner = nullptr;  // the record of the run that owns it, or its group
        bool isTracked = false;  // a tracker's task
    };

    // Errors: std::bad_alloc, std::system_error.
    void CopyJobs();
    void CopyTasks();

    const std::vector<Entry>& Entries() const noexcept { return m_entries; }
    RunInfo Info(const Entry& entry, std::uint64_t now) const;
    std::vector<RunInfo> Infos() const;

    // For those that are copied, under the lock of their list. Without room nothing is copied, and the shard is copied again
    // when there is.
    void Add(const wchar_t* name, const Entry& entry) noexcept;

  private:
    template <typename Shard, typename Copy>
    void CopyShard(Shard& shard, Copy copy);

    std::wstring NameOfTask(const void* future) const;
    std::wstring WaitText(const Entry& entry) const;

    std::vector<Entry> m_entries;
    std::wstring m_names;  // each with a zero behind it
    std::size_t m_missing = 0;  // characters, and more than the entries that are missing
};

}  // namespace Orvane::Internal
