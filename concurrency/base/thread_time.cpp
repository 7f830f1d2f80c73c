#include "concurrency/base/thread_time.h"

#include <atomic>

namespace Orvane::Internal {

namespace {

constinit std::atomic<int> g_scopes = 0;
constinit thread_local ThreadTime* t_time = nullptr;

}  // namespace

ThreadTime* ThreadTime::OfThisThread() noexcept {
    return g_scopes.load(std::memory_order_relaxed) == 0 ? nullptr : t_time;
}

ThreadTime::Scope::Scope(ThreadTime& time) : m_before(t_time) {
    t_time = &time;
    ++g_scopes;
}

ThreadTime::Scope::~Scope() {
    --g_scopes;
    t_time = m_before;
}

MonotonicClock::time_point ThreadNow() {
    ThreadTime* const time = ThreadTime::OfThisThread();
    return time != nullptr ? time->Now() : MonotonicClock::now();
}

}  // namespace Orvane::Internal
