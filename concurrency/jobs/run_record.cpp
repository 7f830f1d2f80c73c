#include "concurrency/jobs/run_record.h"

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_object.h"

namespace Orvane::Internal {

bool RunRecord::Add(Cancellable& owned) {
    const RankedLock lock(m_mutex);
    m_owned.PushBack(owned);
    return !m_isRequested;
}

void RunRecord::Remove(Cancellable& owned) {
    const RankedLock lock(m_mutex);
    static_cast<ListHook<OwnedTag>&>(owned).Unlink();
}

void RunRecord::Requested() noexcept {
    {
        AskedList asked;
        AskOwned(AskReason().ForOwned(m_name), asked);
    }
    StopTokens();
}

AskReason RunRecord::ReasonForOwned() const {
    const RankedLock lock(m_mutex);
    return m_reason.cause != CancelCause::None ? m_reason : AskReason().ForOwned(m_name);
}

bool RunRecord::IsRequestedOnThisThread() const {
    const auto run = m_run.lock();
    return run && run->GetThreadId() == ::GetCurrentThreadId() && run->IsRequested();
}

void RunRecord::KeepReason(const AskReason& reason) noexcept {
    const RankedLock lock(m_mutex);
    if (m_reason.cause == CancelCause::None) {
        m_reason = reason;
    }
}

void RunRecord::AskOwned(const AskReason& reason, AskedList& asked) noexcept {
    KeepReason(reason);
    IntrusiveList<Cancellable, OwnedTag> waiting;
    AskReason first;
    {
        const RankedLock lock(m_mutex);
        first = m_reason;
        m_isRequested = true;
        waiting.TakeAll(m_owned);
    }
    while (const auto owned = NextToAsk(waiting)) {
        owned->Ask(first, asked);
    }
}

// Puts the next one back among the owned and returns it. Those that end meanwhile unlink themselves, from either list.
std::shared_ptr<Cancellable> RunRecord::NextToAsk(IntrusiveList<Cancellable, OwnedTag>& waiting) {
    const RankedLock lock(m_mutex);
    while (Cancellable* const next = waiting.PopFront()) {
        m_owned.PushBack(*next);
        if (auto self = next->Self()) {
            return self;
        }
    }
    return nullptr;
}

void RunRecord::StopTokens() noexcept {
    std::optional<std::stop_source> source;
    {
        const RankedLock lock(m_mutex);
        source = m_source;
    }
    if (source) {
        source->request_stop();
    }
}

std::stop_token RunRecord::Token() {
    RankedLock lock(m_mutex);
    if (!m_source) {
        m_source.emplace();
    }
    const std::stop_source source = *m_source;
    lock.unlock();
    if (IsRequested()) {
        std::stop_source(source).request_stop();
    }
    return source.get_token();
}

}  // namespace Orvane::Internal
