// Mutexes and conditions. A mutex keeps its owner and levels in its own bytes, laid out as the system lays them out.

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <pthread.h>
#include <time.h>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/posix.h"
#include "tests/schedules/controller/uses.h"

namespace Schedules {

namespace {

struct Mutex {
    int lock;
    unsigned levels;
    int owner;  // a thread's number and 1
    unsigned users;
    int kind;
};

Mutex* Of(pthread_mutex_t* mutex) noexcept {
    return reinterpret_cast<Mutex*>(mutex);
}

bool IsFree(const void* mutex) noexcept {
    return static_cast<const Mutex*>(mutex)->owner == 0;
}

int Self() noexcept {
    return ThreadNumber() + 1;
}

void Own(Mutex& mutex, const void* where) {
    while (!IsFree(&mutex)) {
        if (!IsControlled()) {
            Fail("a mutex is held outside of a schedule");
        }
        NoteAttempt(&mutex);
        Block({"waits for a mutex", &IsFree, &mutex}, where);
        CheckAccess(&mutex, "lock");
    }
    NoteUse(&mutex, true);
    mutex.owner = Self();
    mutex.levels = 1;
    Acquire(KeyOf(&mutex));
}

int Lock(pthread_mutex_t* native, const void* where) {
    Mutex& mutex = *Of(native);
    if (!IsControlled()) {
        if (mutex.owner == 0) {
            mutex.owner = Self();
        }
        ++mutex.levels;
        return 0;
    }
    if (mutex.owner == Self()) {
        if (mutex.kind != PTHREAD_MUTEX_RECURSIVE) {
            Fail("thread %d locks what it holds", ThreadNumber());
        }
        ++mutex.levels;
        return 0;
    }
    if (IsFree(&mutex)) {
        Point("lock", &mutex, where);
    } else {
        Touch(&mutex);
    }
    Own(mutex, where);
    return 0;
}

int Unlock(pthread_mutex_t* native) {
    Mutex& mutex = *Of(native);
    CheckAccess(&mutex, "unlock");
    NoteUse(&mutex, true);
    if (IsControlled() && mutex.owner != Self()) {
        Fail("thread %d unlocks what it does not hold", ThreadNumber());
    }
    if (--mutex.levels == 0) {
        if (IsControlled()) {
            Release(KeyOf(&mutex));
        }
        mutex.owner = 0;
    }
    return 0;
}

// The waiters of a condition, each on its own stack. The condition's first bytes are the oldest one.
struct Waiter {
    Mutex* mutex;
    Waiter* next;
    bool isWoken;
    int thread;
};

Waiter*& WaitersOf(pthread_cond_t* condition) noexcept {
    return *reinterpret_cast<Waiter**>(condition);
}

bool CanLeave(const void* object) noexcept {
    const auto* const waiter = static_cast<const Waiter*>(object);
    return waiter->isWoken && IsFree(waiter->mutex);
}

int WaitOn(pthread_cond_t* condition, pthread_mutex_t* native, std::int64_t deadline, const void* where) {
    Mutex& mutex = *Of(native);
    Point("wait on condition", condition, where);
    NoteUse(condition, true);
    Waiter self{&mutex, nullptr, false, ThreadNumber()};
    Waiter** last = &WaitersOf(condition);
    while (*last != nullptr) {
        last = &(*last)->next;
    }
    *last = &self;
    const unsigned levels = mutex.levels;
    mutex.owner = 0;
    Release(KeyOf(&mutex));
    NoteUse(&mutex, true);
    Block({"sleeps on a condition", &CanLeave, &self, deadline}, where);
    NoteUse(condition, true);
    for (Waiter** place = &WaitersOf(condition); !self.isWoken && *place != nullptr; place = &(*place)->next) {
        if (*place == &self) {
            *place = self.next;
            break;
        }
    }
    Own(mutex, where);
    mutex.levels = levels;
    return self.isWoken ? 0 : ETIMEDOUT;
}

// The oldest waiter, or at a cost another one.
void WakeAny(pthread_cond_t* condition) {
    std::array<int, 64> waiters;
    std::size_t count = 0;
    for (const Waiter* waiter = WaitersOf(condition); waiter != nullptr && count < waiters.size();
         waiter = waiter->next) {
        waiters[count++] = waiter->thread;
    }
    if (count == 0) {
        return;
    }
    Waiter** place = &WaitersOf(condition);
    for (std::size_t i = ChooseAmong(waiters.data(), count); i > 0; --i) {
        place = &(*place)->next;
    }
    Waiter* const waiter = *place;
    *place = waiter->next;
    waiter->isWoken = true;
}

void Wake(pthread_cond_t* condition, bool all, const void* where) {
    Point(all ? "wake all" : "wake one", condition, where);
    NoteUse(condition, true);
    if (!all) {
        WakeAny(condition);
        return;
    }
    while (Waiter* const waiter = WaitersOf(condition)) {
        WaitersOf(condition) = waiter->next;
        waiter->isWoken = true;
    }
}

}  // namespace

}  // namespace Schedules

using namespace Schedules;

extern "C" {

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    std::memset(mutex, 0, sizeof(*mutex));
    if (attributes != nullptr) {
        pthread_mutexattr_gettype(attributes, &Of(mutex)->kind);
    }
    return 0;
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) {
    if (IsControlled() && !IsFree(mutex)) {
        Fail("thread %d destroys a mutex that thread %d holds", ThreadNumber(), Of(mutex)->owner - 1);
    }
    return 0;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    return Lock(mutex, WHERE);
}

int pthread_mutex_trylock(pthread_mutex_t* native) {
    Mutex& mutex = *Of(native);
    if (mutex.owner != Self()) {
        Look("try lock", &mutex, static_cast<std::uint64_t>(mutex.owner), WHERE);
        if (!IsFree(&mutex)) {
            return EBUSY;
        }
    } else if (mutex.kind != PTHREAD_MUTEX_RECURSIVE) {
        return EBUSY;
    }
    if (IsControlled()) {
        Acquire(KeyOf(&mutex));
        NoteUse(&mutex, true);
    }
    mutex.owner = Self();
    ++mutex.levels;
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    return Unlock(mutex);
}

int pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t*) {
    std::memset(condition, 0, sizeof(*condition));
    return 0;
}

int pthread_cond_destroy(pthread_cond_t* condition) {
    if (IsControlled() && WaitersOf(condition) != nullptr) {
        Fail("thread %d destroys a condition on which a thread sleeps", ThreadNumber());
    }
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return WaitOn(condition, mutex, kNever, WHERE);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    return WaitOn(condition, mutex, Deadline(CLOCK_REALTIME, *until), WHERE);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until) {
    return WaitOn(condition, mutex, Deadline(clock, *until), WHERE);
}

int pthread_cond_signal(pthread_cond_t* condition) {
    Wake(condition, false, WHERE);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) {
    Wake(condition, true, WHERE);
    return 0;
}
}
