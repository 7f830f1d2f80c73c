#include "concurrency/jobs/run_record.h"

#include <typeinfo>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/jobs/job_future.h"

namespace Orvane::Internal {

std::shared_ptr<RunRecord> RunRecord::OfThisThread() {
    const auto future = CurrentFuture();
    const auto run = future ? future->GetCancellationObject() : nullptr;
    if (!run) {
        return nullptr;
    }
    // Only this room installs companions.
    if (auto companion = future->GetCompanion()) {
        return std::static_pointer_cast<RunRecord>(std::move(companion));
    }
    const JobFuture* const job = JobFuture::Of(*future);
    auto record = std::static_pointer_cast<RunRecord>(
        future->InstallCompanion(std::make_shared<RunRecord>(job != nullptr ? job->MakeName() : nullptr)));
    if (!record) {
        return nullptr;
    }
    // A request sets its flag first and looks for the companion second.
    if (run->IsRequested() || future->IsCancelling()) {
        record->Requested();
    }
    return record;
}

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
        AskOwned(asked);
    }
    StopTokens();
}

void RunRecord::AskOwned(AskedList& asked) noexcept {
    IntrusiveList<Cancellable, OwnedTag> waiting;
    {
        const RankedLock lock(m_mutex);
        m_isRequested = true;
        waiting.TakeAll(m_owned);
    }
    while (const auto owned = NextToAsk(waiting)) {
        owned->Ask({CancelCause::Parent, m_name}, asked);
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
