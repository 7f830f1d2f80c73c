#include "concurrency/base/condition.h"

#ifdef _WIN32

#include "concurrency/base/module_function.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*));
static_assert(sizeof(SRWLOCK) == sizeof(void*));

PCONDITION_VARIABLE Native(void*& condition) noexcept {
    return reinterpret_cast<PCONDITION_VARIABLE>(&condition);
}

// A relative time-out as the system's own functions take it: in ticks, negative.
LARGE_INTEGER Relative(const Duration& timeout) noexcept {
    LARGE_INTEGER relative;
    relative.QuadPart = -timeout.count();
    return relative;
}

DWORD Milliseconds(const Duration& timeout) noexcept {
    return static_cast<DWORD>(std::chrono::ceil<std::chrono::milliseconds>(timeout).count());
}

// What SleepConditionVariableCS is made of, with the time-out in ticks.
using SleepInTicks = LONG(NTAPI*)(PCONDITION_VARIABLE, PCRITICAL_SECTION, const LARGE_INTEGER*);

void SleepFor(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, const Duration& timeout) noexcept {
    static const auto sleep = FindFunction<SleepInTicks>(L"ntdll", "RtlSleepConditionVariableCS");
    if (sleep != nullptr) {
        const LARGE_INTEGER relative = Relative(timeout);
        sleep(condition, section, &relative);
        return;
    }
    SleepConditionVariableCS(condition, section, Milliseconds(timeout));
}

}  // namespace

void Condition::SleepOn(void* criticalSection, const Duration* timeout) noexcept {
    const auto section = static_cast<PCRITICAL_SECTION>(criticalSection);
    if (timeout == nullptr) {
        SleepConditionVariableCS(Native(m_native), section, INFINITE);
    } else {
        SleepFor(Native(m_native), section, *timeout);
    }
}

#ifdef GCC_GTHR_WIN32_H

void Condition::WakeOne() noexcept {
    WakeConditionVariable(Native(m_native));
}

void Condition::WakeAll() noexcept {
    WakeAllConditionVariable(Native(m_native));
}

#else

namespace {

PSRWLOCK Inner(void*& inner) noexcept {
    return reinterpret_cast<PSRWLOCK>(&inner);
}

// What SleepConditionVariableSRW is made of, with the time-out in ticks.
using SleepInnerInTicks = LONG(NTAPI*)(PCONDITION_VARIABLE, PSRWLOCK, const LARGE_INTEGER*, ULONG);

void SleepFor(PCONDITION_VARIABLE condition, PSRWLOCK inner, const Duration& timeout) noexcept {
    static const auto sleep = FindFunction<SleepInnerInTicks>(L"ntdll", "RtlSleepConditionVariableSRW");
    if (sleep != nullptr) {
        const LARGE_INTEGER relative = Relative(timeout);
        sleep(condition, inner, &relative, 0);
        return;
    }
    SleepConditionVariableSRW(condition, inner, Milliseconds(timeout), 0);
}

}  // namespace

void Condition::LockInner() noexcept {
    AcquireSRWLockExclusive(Inner(m_inner));
}

void Condition::SleepOnInner(const Duration* timeout) noexcept {
    if (timeout == nullptr) {
        SleepConditionVariableSRW(Native(m_native), Inner(m_inner), INFINITE, 0);
    } else {
        SleepFor(Native(m_native), Inner(m_inner), *timeout);
    }
    ReleaseSRWLockExclusive(Inner(m_inner));
}

void Condition::PassInner() noexcept {
    AcquireSRWLockExclusive(Inner(m_inner));
    ReleaseSRWLockExclusive(Inner(m_inner));
}

void Condition::WakeOne() noexcept {
    PassInner();
    WakeConditionVariable(Native(m_native));
}

void Condition::WakeAll() noexcept {
    PassInner();
    WakeAllConditionVariable(Native(m_native));
}

#endif

}  // namespace Orvane::Internal

#endif
