#include "tests/schedules/controller/baton.h"

#include <linux/futex.h>
#include <sys/syscall.h>

namespace Schedules {

namespace {

// On purpose not through syscall(), which is the controller's.
long Futex(int* word, int operation, int value) noexcept {
    long result = 0;
    register const void* timeout asm("r10") = nullptr;
    asm volatile("syscall"
                 : "=a"(result)
                 : "a"(SYS_futex), "D"(word), "S"(operation), "d"(value), "r"(timeout)
                 : "rcx", "r11", "memory");
    return result;
}

}  // namespace

void Baton::Await() noexcept {
    while (__atomic_load_n(&m_isHere, __ATOMIC_ACQUIRE) == 0) {
        Futex(&m_isHere, FUTEX_WAIT_PRIVATE, 0);
    }
    m_isHere = 0;
}

void Baton::Pass() noexcept {
    __atomic_store_n(&m_isHere, 1, __ATOMIC_RELEASE);
    Futex(&m_isHere, FUTEX_WAKE_PRIVATE, 1);
}

}  // namespace Schedules
