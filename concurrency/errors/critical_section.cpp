#include "concurrency/errors/critical_section.h"

namespace Orvane {

CriticalSection::CriticalSection() {
    InitializeCriticalSection(&m_section);
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(&m_section);
}

CriticalSectionLock::CriticalSectionLock(CriticalSection& section, const std::source_location& where)
    : m_owner(section), m_order(&section, Internal::LockRank::Creation, where) {
    m_order.Taking();
    EnterCriticalSection(&m_owner.m_section);
}

CriticalSectionLock::~CriticalSectionLock() {
    LeaveCriticalSection(&m_owner.m_section);
}

}  // namespace Orvane
