#include "concurrency/jobs/token_link.h"

#include <utility>

namespace Orvane::Internal {

void TokenLink::Register(const std::stop_token& token) noexcept {
    {
        const RankedLock lock(m_mutex);
        if (m_isRemoved) {
            return;
        }
        m_token = token;
        m_self = shared_from_this();
        m_isRegistering = true;
        m_callback.emplace(token, Call{*this});  // a thread that calls it waits for the mutex
        m_isRegistering = false;
        if (!m_isStopped) {
            return;
        }
        m_callback.reset();
        m_self = nullptr;
    }
    Ask();
}

void TokenLink::Remove() noexcept {
    {
        const RankedLock lock(m_mutex);
        if (m_isRemoved || m_isStopped || m_token.stop_requested()) {
            return;
        }
        m_isRemoved = true;
    }
    m_callback.reset();
    m_self = nullptr;
}

void TokenLink::TokenStops() noexcept {
    {
        const RankedLock lock(m_mutex);
        if (m_isRegistering) {
            m_isStopped = true;
            return;
        }
        if (m_isRemoved) {
            return;  // the thread that removes it waits for this
        }
    }
    Ask();
    m_callback.reset();  // with the object whose operator called this function
    const auto last = std::move(m_self);
}

void TokenLink::Ask() noexcept {
    if (const auto asked = m_asked.lock()) {
        AskToLeave(*asked, {CancelCause::Token, nullptr});
    }
}

}  // namespace Orvane::Internal
