#include "concurrency/base/condition.h"

#ifdef GCC_GTHR_WIN32_H

#include "concurrency/base/module_function.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*));

PCONDITION_VARIABLE Native(void*& condition) noexcept {
    return reinterpret_cast<PCONDITION_VARIABLE>(&condition);
}

// What SleepConditionVariableCS is made of, with the time-out in ticks: negative for a relative one.
using SleepInTicks = LONG(NTAPI*)(PCONDITION_VARIABLE, PCRITICAL_SECTION, const LARGE_INTEGER*);

void SleepFor(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, const Duration& timeout) noexcept {
    static const auto sleep = FindFunction<SleepInTicks>(L"ntdll", "RtlSleepConditionVariableCS");
    if (sleep != nullptr) {
        LARGE_INTEGER relative;
        relative.QuadPart = -timeout.count();
        sleep(condition, section, &relative);
        return;
    }
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(timeout);
    SleepConditionVariableCS(condition, section, static_cast<DWORD>(milliseconds.count()));
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

void Condition::WakeOne() noexcept {
    WakeConditionVariable(Native(m_native));
}

void Condition::WakeAll() noexcept {
    WakeAllConditionVariable(Native(m_native));
}

}  // namespace Orvane::Internal

#endif
