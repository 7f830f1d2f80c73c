#include "concurrency/jobs/run_record.h"

#include <algorithm>
#include <cstddef>
#include <utility>

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
    RankedLock lock(m_mutex);
    ++m_stopping;
    // One that is made meanwhile is stopped here or by Token(). By index: the list may grow while the lock is released.
    // NOLINTNEXTLINE(modernize-loop-convert)
    for (std::size_t next = 0; next < m_sources.size(); ++next) {
        const StopInModule stop = m_sources[next].stop;
        std::stop_source source = m_sources[next].source;
        const ReleasedLock released(lock, m_mutex);
        stop(source);
    }
    --m_stopping;
    UnpinModules(lock);
}

std::stop_token RunRecord::Token(StopInModule stop, ModuleLedger& module) {
    module.Pin(reinterpret_cast<const void*>(stop));
    bool isPinned = true;
    std::stop_token token;
    try {
        const RankedLock lock(m_mutex);
        auto found = std::ranges::find(m_sources, &module, &SourceOfAModule::module);
        if (found == m_sources.end()) {
            found = m_sources.insert(found, {stop, &module, std::stop_source()});
            isPinned = false;  // its own now
        }
        token = found->source.get_token();
    } catch (...) {
        module.Unpin();
        throw;
    }
    if (isPinned) {
        module.Unpin();
    }
    if (IsRequested()) {
        StopTokens();
    }
    return token;
}

void RunRecord::LetGoOfModules() noexcept {
    RankedLock lock(m_mutex);
    m_isOver = true;
    UnpinModules(lock);
}

// If the run is over and no thread calls the modules. Gives the lock back meanwhile: a module may run code when it is unloaded.
void RunRecord::UnpinModules(RankedLock<Mutex>& lock) noexcept {
    if (!m_isOver || m_stopping != 0) {
        return;
    }
    for (SourceOfAModule& source : m_sources) {
        source.stop = &StopInThisModule;
    }
    // NOLINTNEXTLINE(modernize-loop-convert): as above
    for (std::size_t next = 0; next < m_sources.size(); ++next) {
        if (ModuleLedger* const module = std::exchange(m_sources[next].module, nullptr)) {
            const ReleasedLock released(lock, m_mutex);
            module->Unpin();
        }
    }
}

}  // namespace Orvane::Internal
