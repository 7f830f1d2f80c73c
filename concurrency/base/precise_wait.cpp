#include "concurrency/base/precise_wait.h"

// Only where the toolchain's condition and mutex are the platform's own, and so are their native handles.
#ifdef GCC_GTHR_WIN32_H

#include "concurrency/base/module_function.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// What SleepConditionVariableCS is made of, with the time-out in ticks: negative for a relative one.
using SleepInTicks = LONG(NTAPI*)(PCONDITION_VARIABLE, PCRITICAL_SECTION, const LARGE_INTEGER*);

// What the system adds to a timed wait of a thread at rest, to let wake-ups fall together. Asked for so much less, the
// thread wakes when it wants to. Where nothing is added it wakes too soon, and waits once more for what is left.
constexpr Duration kSlack = std::chrono::microseconds(50);

}  // namespace

void PreciseWaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, const Duration& timeout) {
    static const auto sleep = FindFunction<SleepInTicks>(L"ntdll", "RtlSleepConditionVariableCS");
    if (sleep == nullptr) {
        condition.wait_for(lock, timeout);
        return;
    }
    LARGE_INTEGER relative;
    relative.QuadPart = -(timeout > kSlack ? timeout - kSlack : timeout).count();
    sleep(reinterpret_cast<PCONDITION_VARIABLE>(condition.native_handle()),
          reinterpret_cast<PCRITICAL_SECTION>(lock.mutex()->native_handle()), &relative);
}

}  // namespace Orvane::Internal

#else

namespace Orvane::Internal {

void PreciseWaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, const Duration& timeout) {
    condition.wait_for(lock, timeout);
}

}  // namespace Orvane::Internal

#endif
