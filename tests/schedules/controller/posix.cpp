// The functions of POSIX threads and clocks that the library, the stand-in and the standard library reach, on the controller. They
// stand in the program, so they come before the system's own. A mutex keeps its owner and levels in its own bytes, laid out as the
// system lays them out.

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/posix.h"

#define WHERE __builtin_return_address(0)

namespace Schedules {

namespace {

template <typename Function>
Function* System(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

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
        Block({"waits for a mutex", &IsFree, &mutex}, where);
        CheckAccess(&mutex, "lock");
    }
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
    Waiter self{&mutex, nullptr, false, ThreadNumber()};
    Waiter** last = &WaitersOf(condition);
    while (*last != nullptr) {
        last = &(*last)->next;
    }
    *last = &self;
    const unsigned levels = mutex.levels;
    mutex.owner = 0;
    Release(KeyOf(&mutex));
    Block({"sleeps on a condition", &CanLeave, &self, deadline}, where);
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
    if (!all) {
        WakeAny(condition);
        return;
    }
    while (Waiter* const waiter = WaitersOf(condition)) {
        WaitersOf(condition) = waiter->next;
        waiter->isWoken = true;
    }
}

constexpr std::int64_t kNanosecondsOfSecond = 1'000'000'000;

// What the clocks say at the begin of a schedule.
constexpr std::int64_t kWallClock = std::int64_t{1'700'000'000} * kNanosecondsOfSecond;
constexpr std::int64_t kMonotonicClock = std::int64_t{100'000} * kNanosecondsOfSecond;

std::int64_t Base(clockid_t clock) noexcept {
    return clock == CLOCK_REALTIME ? kWallClock : kMonotonicClock;
}

std::int64_t InNanoseconds(const timespec& time) noexcept {
    if (time.tv_sec > kNever / kNanosecondsOfSecond - 1) {
        return kNever;
    }
    return time.tv_sec * kNanosecondsOfSecond + time.tv_nsec;
}

std::int64_t Deadline(clockid_t clock, const timespec& time) noexcept {
    const std::int64_t moment = InNanoseconds(time);
    return moment == kNever ? kNever : moment - Base(clock);
}

void SleepUntil(std::int64_t deadline, const void* where) {
    Block({"sleeps", [](const void*) { return false; }, nullptr, deadline}, where);
}

// A thread as it begins.
struct Start {
    void* (*entry)(void*);
    void* argument;
    int number;
};

struct Known {
    pthread_t thread;
    int number;
};
Known g_known[256];
int g_knownCount = 0;

pthread_key_t EndKey() {
    static const pthread_key_t key = [] {
        pthread_key_t made;
        // After the destructors of thread-local objects, which belong to the schedule.
        pthread_key_create(&made, [](void*) { LeaveThread(); });
        return made;
    }();
    return key;
}

void* Run(void* argument) {
    const Start start = *static_cast<Start*>(argument);
    std::free(argument);
    pthread_setspecific(EndKey(), &g_known);
    NoteStack(start.number, __builtin_frame_address(0));
    EnterThread(start.number);
    return start.entry(start.argument);
}

}  // namespace

void ForgetThreads() {
    EndKey();
    g_knownCount = 0;
}

}  // namespace Schedules

using namespace Schedules;

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument) {
    static const auto create = System<decltype(pthread_create)>("pthread_create");
    if (!IsControlled()) {
        return create(thread, attributes, entry, argument);
    }
    auto* const start = static_cast<Start*>(std::malloc(sizeof(Start)));
    *start = {entry, argument, AddThread()};
    const int number = start->number;
    const int error = create(thread, attributes, &Run, start);
    if (error != 0) {
        Fail("no thread: error %d", error);
    }
    g_known[g_knownCount++] = {*thread, number};
    return 0;
}

int pthread_join(pthread_t thread, void** result) {
    static const auto join = System<decltype(pthread_join)>("pthread_join");
    if (IsControlled()) {
        for (int i = g_knownCount; i-- > 0;) {
            if (pthread_equal(g_known[i].thread, thread)) {
                const auto hasLeft = +[](const void* number) { return HasLeft(*static_cast<const int*>(number)); };
                if (!hasLeft(&g_known[i].number)) {
                    Block({"joins a thread", hasLeft, &g_known[i].number}, WHERE);
                }
                JoinOrderOf(g_known[i].number);
                break;
            }
        }
    }
    return join(thread, result);
}

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

// 0: not called. 1: being called. 2: done.
int pthread_once(pthread_once_t* once, void (*call)()) {
    Touch(once);
    const auto isDone = +[](const void* object) { return *static_cast<const int*>(object) != 1; };
    if (IsControlled() && !isDone(once)) {
        Block({"waits for a call that is made once", isDone, once}, WHERE);
    }
    if (*once == 0) {
        *once = 1;
        call();
        *once = 2;
        if (IsControlled()) {
            Release(KeyOf(once));
        }
    } else if (IsControlled()) {
        Acquire(KeyOf(once));
    }
    return 0;
}

// What makes a static object is one step: it happens once in a process, and schedules are repeated in one.
int __cxa_guard_acquire(std::uint64_t* guard) {
    auto* const bytes = reinterpret_cast<char*>(guard);
    const auto isKnown = +[](const void* object) { return static_cast<const char*>(object)[1] == 0; };
    if (IsControlled() && !isKnown(guard)) {
        Block({"waits for a static object", isKnown, guard}, WHERE);
    }
    if (bytes[0] != 0) {
        return 0;
    }
    bytes[1] = 1;
    BeginAtomic();
    return 1;
}

void __cxa_guard_release(std::uint64_t* guard) {
    auto* const bytes = reinterpret_cast<char*>(guard);
    bytes[1] = 0;
    bytes[0] = 1;
    EndAtomic();
    if (IsControlled()) {
        Release(KeyOf(guard));
    }
}

void __cxa_guard_abort(std::uint64_t* guard) {
    reinterpret_cast<char*>(guard)[1] = 0;
    EndAtomic();
}

int clock_gettime(clockid_t clock, timespec* time) {
    static const auto get = System<decltype(clock_gettime)>("clock_gettime");
    if (!IsControlled()) {
        return get(clock, time);
    }
    const std::int64_t now = Base(clock) + NowAfterReading();
    *time = {now / kNanosecondsOfSecond, now % kNanosecondsOfSecond};
    return 0;
}

int nanosleep(const timespec* duration, timespec*) {
    SleepUntil(Now() + InNanoseconds(*duration), WHERE);
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec*) {
    SleepUntil((flags & TIMER_ABSTIME) != 0 ? Deadline(clock, *time) : Now() + InNanoseconds(*time), WHERE);
    return 0;
}

int sched_yield() {
    Yield(WHERE);
    return 0;
}

// Waits of atomics, and what else the program asks of the system directly.
long syscall(long number, ...) {
    static const auto call = System<decltype(syscall)>("syscall");
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    if (number != SYS_futex || !IsControlled()) {
        return call(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
    }
    struct Sleeper {
        const int* word;
        int value;
    };
    const auto* const word = reinterpret_cast<const int*>(arguments[0]);
    if ((arguments[1] & FUTEX_CMD_MASK) != FUTEX_WAIT) {
        return 0;  // who sleeps looks at the word; and it may be gone by now, which the system does not mind
    }
    Point("atomic wait", word, WHERE);
    const Sleeper self{word, static_cast<int>(arguments[2])};
    const auto isOver = +[](const void* object) {
        const auto* const sleeper = static_cast<const Sleeper*>(object);
        return *sleeper->word != sleeper->value;
    };
    if (!isOver(&self)) {
        Block({"sleeps on an atomic", isOver, &self}, WHERE);
    }
    return 0;
}

// Of the stand-in: the same in every schedule, since locks are chosen by it.
unsigned long GetCurrentThreadId() {
    static const auto get = System<decltype(GetCurrentThreadId)>("GetCurrentThreadId");
    return IsControlled() ? static_cast<unsigned long>(10'000'000 + ThreadNumber()) : get();
}
}
