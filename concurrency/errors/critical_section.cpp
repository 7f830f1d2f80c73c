#include "concurrency/errors/critical_section.h"

namespace Orvane {

CriticalSection::CriticalSection() {
    InitializeCriticalSection(&m_section);
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(&m_section);
}

CriticalSectionLock::CriticalSectionLock(CriticalSection& section) : m_owner(section) {
    EnterCriticalSection(&m_owner.m_section);
}

CriticalSectionLock::~CriticalSectionLock() {
    LeaveCriticalSection(&m_owner.m_section);
}

}  // namespace Orvane
