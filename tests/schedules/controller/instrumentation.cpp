// What the compiler calls with -fsanitize=thread, in place of the sanitizer's own runtime: atomics are points, and plain accesses
// are checked against freed memory.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/uses.h"

#define WHERE __builtin_return_address(0)

namespace {

constexpr int kAcquireAndRelease = 4;

// Word by word.
void NoteRange(const void* address, std::size_t bytes, bool writes) {
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    for (std::uintptr_t word = begin & ~std::uintptr_t{7}; word < begin + bytes; word += 8) {
        Schedules::NoteUse(reinterpret_cast<const void*>(word), writes);
    }
}

void Read(const void* address, std::size_t bytes, const char* what) {
    Schedules::CheckAccess(address, what);
    NoteRange(address, bytes, false);
}

void Write(const void* address, std::size_t bytes, const char* what) {
    Schedules::CheckAccess(address, what);
    NoteRange(address, bytes, true);
}

// After a point, before the operation itself.
void Meet(const volatile void* object) {
    if (Schedules::IsControlled()) {
        const std::uint64_t key = Schedules::KeyOf(const_cast<const void*>(object));
        Schedules::Acquire(key);
        Schedules::Release(key);
        Schedules::NoteUse(const_cast<const void*>(object), true);
    }
}

template <typename T>
T Load(const volatile T* object, const void* where) {
    const void* const address = const_cast<const T*>(object);
    Schedules::Look("load", address, static_cast<std::uint64_t>(__atomic_load_n(object, __ATOMIC_SEQ_CST)), where);
    if (Schedules::IsControlled()) {
        Schedules::Acquire(Schedules::KeyOf(address));
    }
    return __atomic_load_n(object, __ATOMIC_SEQ_CST);
}

void BeforeChange(const char* what, const volatile void* object, const void* where) {
    Schedules::Point(what, const_cast<const void*>(object), where);
    Meet(object);
}

// On purpose no point where a reference count rises: who raises it has a reference, so only the last decrease decides
// anything. Nor where it sinks just after a look at it: the look was one. libstdc++ alone asks for this order with this
// operation.
template <typename T>
void BeforeAdd(const volatile T* object, T value, int order, const void* where) {
    const bool isReferenceCount = sizeof(T) == 4 && order == kAcquireAndRelease;
    const void* const counter = const_cast<const T*>(object);
    if (isReferenceCount && (value == 1 || Schedules::HasJustLookedAt(counter))) {
        Schedules::Touch(counter);
        Meet(counter);
    } else {
        BeforeChange("add", object, where);
    }
}

template <typename T>
bool CompareExchange(volatile T* object, T* expected, T desired, const void* where) {
    BeforeChange("compare and exchange", object, where);
    return __atomic_compare_exchange_n(object, expected, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

}  // namespace

extern "C" {

#define ATOMICS(bits, T)                                                                                      \
    T __tsan_atomic##bits##_load(const volatile T* object, int) {                                             \
        return Load(object, WHERE);                                                                           \
    }                                                                                                         \
    void __tsan_atomic##bits##_store(volatile T* object, T value, int) {                                      \
        BeforeChange("store", object, WHERE);                                                                 \
        __atomic_store_n(object, value, __ATOMIC_SEQ_CST);                                                    \
    }                                                                                                         \
    T __tsan_atomic##bits##_exchange(volatile T* object, T value, int) {                                      \
        BeforeChange("exchange", object, WHERE);                                                              \
        return __atomic_exchange_n(object, value, __ATOMIC_SEQ_CST);                                          \
    }                                                                                                         \
    T __tsan_atomic##bits##_fetch_add(volatile T* object, T value, int order) {                               \
        BeforeAdd(object, value, order, WHERE);                                                               \
        return __atomic_fetch_add(object, value, __ATOMIC_SEQ_CST);                                           \
    }                                                                                                         \
    T __tsan_atomic##bits##_fetch_sub(volatile T* object, T value, int) {                                     \
        BeforeChange("subtract", object, WHERE);                                                              \
        return __atomic_fetch_sub(object, value, __ATOMIC_SEQ_CST);                                           \
    }                                                                                                         \
    T __tsan_atomic##bits##_fetch_and(volatile T* object, T value, int) {                                     \
        BeforeChange("and", object, WHERE);                                                                   \
        return __atomic_fetch_and(object, value, __ATOMIC_SEQ_CST);                                           \
    }                                                                                                         \
    T __tsan_atomic##bits##_fetch_or(volatile T* object, T value, int) {                                      \
        BeforeChange("or", object, WHERE);                                                                    \
        return __atomic_fetch_or(object, value, __ATOMIC_SEQ_CST);                                            \
    }                                                                                                         \
    T __tsan_atomic##bits##_fetch_xor(volatile T* object, T value, int) {                                     \
        BeforeChange("exclusive or", object, WHERE);                                                          \
        return __atomic_fetch_xor(object, value, __ATOMIC_SEQ_CST);                                           \
    }                                                                                                         \
    int __tsan_atomic##bits##_compare_exchange_strong(volatile T* object, T* expected, T desired, int, int) { \
        return CompareExchange(object, expected, desired, WHERE) ? 1 : 0;                                     \
    }                                                                                                         \
    int __tsan_atomic##bits##_compare_exchange_weak(volatile T* object, T* expected, T desired, int, int) {   \
        return CompareExchange(object, expected, desired, WHERE) ? 1 : 0;                                     \
    }                                                                                                         \
    T __tsan_atomic##bits##_compare_exchange_val(volatile T* object, T expected, T desired, int, int) {       \
        CompareExchange(object, &expected, desired, WHERE);                                                   \
        return expected;                                                                                      \
    }

ATOMICS(8, std::uint8_t)
ATOMICS(16, std::uint16_t)
ATOMICS(32, std::uint32_t)
ATOMICS(64, std::uint64_t)

void __tsan_atomic_thread_fence(int) {}
void __tsan_atomic_signal_fence(int) {}

#define PLAIN(bytes)                                         \
    void __tsan_read##bytes(void* address) {                 \
        Read(address, bytes, "read");                        \
    }                                                        \
    void __tsan_write##bytes(void* address) {                \
        Write(address, bytes, "write");                      \
    }                                                        \
    void __tsan_unaligned_read##bytes(const void* address) { \
        Read(address, bytes, "read");                        \
    }                                                        \
    void __tsan_unaligned_write##bytes(void* address) {      \
        Write(address, bytes, "write");                      \
    }                                                        \
    void __tsan_read_write##bytes(void* address) {           \
        Write(address, bytes, "write");                      \
    }                                                        \
    void __tsan_unaligned_read_write##bytes(void* address) { \
        Write(address, bytes, "write");                      \
    }

PLAIN(1)
PLAIN(2)
PLAIN(4)
PLAIN(8)
PLAIN(16)

void __tsan_read_range(void* address, unsigned long bytes) {
    Read(address, bytes, "read");
}
void __tsan_write_range(void* address, unsigned long bytes) {
    Write(address, bytes, "write");
}
void __tsan_vptr_read(void** address) {
    Read(address, sizeof(*address), "virtual call");
}
void __tsan_vptr_update(void** address, void*) {
    Write(address, sizeof(*address), "write");
}

void* __tsan_memcpy(void* to, const void* from, std::size_t bytes) {
    Write(to, bytes, "copy");
    Read(from, bytes, "copy");
    NoteRange(from, bytes, false);
    return std::memcpy(to, from, bytes);
}
void* __tsan_memmove(void* to, const void* from, std::size_t bytes) {
    Write(to, bytes, "copy");
    Read(from, bytes, "copy");
    NoteRange(from, bytes, false);
    return std::memmove(to, from, bytes);
}
void* __tsan_memset(void* to, int value, std::size_t bytes) {
    Write(to, bytes, "fill");
    return std::memset(to, value, bytes);
}

void __tsan_init() {}
void __tsan_func_entry(void*) {}
void __tsan_func_exit() {}

// Around the lock inside an atomic shared pointer: what happens under it is one step.
void __tsan_mutex_pre_lock(void*, unsigned) {
    Schedules::SkipNextPoint();
}
void __tsan_mutex_post_lock(void*, unsigned flags, int) {
    constexpr unsigned kFailed = 1U << 5;
    if ((flags & kFailed) == 0) {
        Schedules::BeginAtomic();
    }
}
int __tsan_mutex_pre_unlock(void*, unsigned) {
    return 0;
}
void __tsan_mutex_post_unlock(void*, unsigned) {
    Schedules::EndAtomic();
}
void __tsan_mutex_pre_signal(void*, unsigned) {}
void __tsan_mutex_post_signal(void*, unsigned) {}
void __tsan_mutex_destroy(void*, unsigned) {}
}
