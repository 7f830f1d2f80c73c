#include "concurrency/jobs/within.h"

#include "concurrency/jobs/scope_run.h"

namespace Orvane {

using Internal::ScopeRun;

Within::Within(const wchar_t* name, std::chrono::nanoseconds limit, int)
    : m_run(ScopeRun::Enter(ScopeRun::Kind::Limit, name, limit)) {}

Within::~Within() {
    m_run->Leave();
}

CleanUpScope::CleanUpScope(std::chrono::nanoseconds time, int)
    : m_run(ScopeRun::Enter(ScopeRun::Kind::CleanUp, nullptr, time)) {}

CleanUpScope::~CleanUpScope() {
    m_run->Leave();
}

}  // namespace Orvane
