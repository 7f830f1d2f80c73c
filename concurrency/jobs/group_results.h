// What a group keeps of its jobs' ends: the failures, and a record of each end until the iteration takes it.
//
// Threads: guarded by the group.
// Errors: none: nodes are made beforehand, so that the end of a job needs no memory.
#pragma once

#include <cstddef>
#include <list>
#include <memory>

#include "concurrency/jobs/job_name.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/module_ledger.h"

namespace Orvane::Internal {

struct FailedJob {
    std::shared_ptr<const JobName> name;
    HeldError error;
};

struct EndedRecord {
    std::size_t index;
    JobOutcome outcome;
    FailedJob job;
};

class GroupResults {
  public:
    // How many records a group keeps before it says that no caller reads them.
    static constexpr std::size_t kMany = 100'000;

    // Takes the only node. Returns whether it is the first failure in time.
    bool AddFailure(std::list<FailedJob>& node) noexcept;

    // Without a node: keeps the failure if it is the first, and returns that.
    bool AddFirstFailure(const FailedJob& failure) noexcept;

    // No error if there is none.
    const FailedJob& First() const noexcept { return m_first; }
    const std::list<FailedJob>& Failures() const noexcept { return m_failures; }

    // The first failure has come to a caller, if there is one; then it is not reported.
    void MarkFirstAsRead() noexcept { m_isFirstRead = static_cast<bool>(m_first.error); }
    bool IsFirstGone() const noexcept { return m_first.name && !m_first.error; }
    bool IsFirstUnread() const noexcept { return m_first.error && !m_isFirstRead; }

    // Takes the only node, with the record in it, unless none are kept. Returns whether that makes kMany.
    bool AddRecord(std::list<EndedRecord>& node, EndedRecord record) noexcept;

    // Null if there is none.
    const EndedRecord* NextRecord() const noexcept { return m_ended.empty() ? nullptr : &m_ended.front(); }
    std::list<EndedRecord> TakeRecord() noexcept;

    // Those so far, to be destroyed without the lock. Keeps none from now on.
    std::list<EndedRecord> ForgetRecords() noexcept;

    // All failures and records, to be destroyed without the lock. Keeps no record from now on, and of the first failure the name.
    GroupResults TakeAll() noexcept;

  private:
    FailedJob m_first;
    bool m_isFirstRead = false;
    std::list<FailedJob> m_failures;
    std::list<EndedRecord> m_ended;
    bool m_keepsEnded = true;
};

}  // namespace Orvane::Internal
