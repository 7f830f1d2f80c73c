#include "zarvo_orvane_logging/process_lock.h"

#include <atomic>

#include <windows.h>

namespace Orvane::Reports {

namespace {

using Question = BOOLEAN(NTAPI*)();

BOOLEAN NTAPI AnswerNo() noexcept {
    return FALSE;
}

SRWLOCK* AsSystemLock(void** lock) noexcept {
    static_assert(sizeof(SRWLOCK) == sizeof(void*));
    return reinterpret_cast<SRWLOCK*>(lock);
}

CONDITION_VARIABLE* AsSystemCondition(void** condition) noexcept {
    static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*));
    return reinterpret_cast<CONDITION_VARIABLE*>(condition);
}

}  // namespace

bool IsProcessEnding() noexcept {
    static constinit std::atomic<Question> known{nullptr};
    Question question = known.load(std::memory_order_relaxed);
    if (question == nullptr) {
        void* const found =
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress"));
        question = found != nullptr ? reinterpret_cast<Question>(found) : AnswerNo;
        known.store(question, std::memory_order_relaxed);
    }
    return question() != FALSE;
}

void ProcessLock::lock() noexcept {
    if (!IsProcessEnding()) {
        AcquireSRWLockExclusive(AsSystemLock(&m_lock));
    }
}

void ProcessLock::unlock() noexcept {
    if (!IsProcessEnding()) {
        ReleaseSRWLockExclusive(AsSystemLock(&m_lock));
    }
}

void ProcessCondition::Sleep(ProcessLock& lock) noexcept {
    if (!IsProcessEnding()) {
        SleepConditionVariableSRW(AsSystemCondition(&m_condition), AsSystemLock(&lock.m_lock), INFINITE, 0);
    }
}

void ProcessCondition::WakeAll() noexcept {
    WakeAllConditionVariable(AsSystemCondition(&m_condition));
}

}  // namespace Orvane::Reports
