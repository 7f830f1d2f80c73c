#include "concurrency/jobs/group_results.h"

#include <utility>

namespace Orvane::Internal {

bool GroupResults::AddFailure(std::list<FailedJob>& node) noexcept {
    const bool isFirst = AddFirstFailure(node.front());
    m_failures.splice(m_failures.end(), node);
    return isFirst;
}

bool GroupResults::AddFirstFailure(const FailedJob& failure) noexcept {
    if (m_first.name) {
        return false;
    }
    m_first = failure;
    return true;
}

bool GroupResults::AddRecord(std::list<EndedRecord>& node, EndedRecord record) noexcept {
    if (!m_keepsEnded) {
        return false;
    }
    node.front() = std::move(record);
    m_ended.splice(m_ended.end(), node);
    return m_ended.size() == kMany;
}

std::list<EndedRecord> GroupResults::TakeRecord() noexcept {
    std::list<EndedRecord> taken;
    m_isFirstRead = m_isFirstRead || m_ended.front().outcome == JobOutcome::Failed;
    taken.splice(taken.end(), m_ended, m_ended.begin());
    return taken;
}

std::list<EndedRecord> GroupResults::ForgetRecords() noexcept {
    m_keepsEnded = false;
    return std::exchange(m_ended, {});
}

GroupResults GroupResults::TakeAll() noexcept {
    GroupResults all;
    std::swap(all, *this);
    m_keepsEnded = false;
    m_first.name = all.m_first.name;
    return all;
}

}  // namespace Orvane::Internal
