// Threads, what is made once, and waits of atomics.

#include <cstdarg>
#include <cstdint>
#include <cstdlib>

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/posix.h"
#include "tests/schedules/controller/uses.h"

namespace Schedules {

namespace {

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
                SeeEndOf(g_known[i].number);
                if (!hasLeft(&g_known[i].number)) {
                    Block({"joins a thread", hasLeft, &g_known[i].number}, WHERE);
                }
                SeeEndOf(g_known[i].number);
                JoinOrderOf(g_known[i].number);
                break;
            }
        }
    }
    return join(thread, result);
}

// 0: not called. 1: being called. 2: done.
int pthread_once(pthread_once_t* once, void (*call)()) {
    Touch(once);
    NoteUse(once, true);
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
    NoteUse(guard, true);
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
    NoteUse(guard, true);
    EndAtomic();
    if (IsControlled()) {
        Release(KeyOf(guard));
    }
}

void __cxa_guard_abort(std::uint64_t* guard) {
    reinterpret_cast<char*>(guard)[1] = 0;
    EndAtomic();
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
    NoteAttempt(word);
    const Sleeper self{word, static_cast<int>(arguments[2])};
    const auto isOver = +[](const void* object) {
        const auto* const sleeper = static_cast<const Sleeper*>(object);
        return *sleeper->word != sleeper->value;
    };
    if (!isOver(&self)) {
        Block({"sleeps on an atomic", isOver, &self}, WHERE);
    }
    NoteUse(word, false);
    return 0;
}

// Of the stand-in: the same in every schedule, since locks are chosen by it.
unsigned long GetCurrentThreadId() {
    static const auto get = System<decltype(GetCurrentThreadId)>("GetCurrentThreadId");
    return IsControlled() ? static_cast<unsigned long>(10'000'000 + ThreadNumber()) : get();
}
}
