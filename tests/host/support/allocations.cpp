// The memory that comes from new, counted and withheld by operators of our own. A module by itself, so that the others
// import them.
#include "tests/support/allocations.h"

#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constinit std::atomic<std::int64_t> g_blocks = 0;
constinit std::atomic<std::int64_t> g_bytes = 0;
thread_local constinit bool t_withheld = false;

// What FailingNew looks for.
constinit std::atomic<bool> g_oneFails = false;
constinit std::atomic<bool> g_othersFail = false;
constinit std::atomic<int> g_leftToSucceed = 0;
thread_local constinit bool t_chooses = false;

// The stand-in for the platform, whose own memory is none of the library's.
bool IsInPlatform(const void* code) noexcept {
    Dl_info module{};
    return ::dladdr(code, &module) != 0 && std::strstr(module.dli_fname, "host_windows") != nullptr;
}

bool IsTheFailingOne(const void* caller) noexcept {
    return g_oneFails && t_chooses != g_othersFail && !IsInPlatform(caller) && g_leftToSucceed-- == 0;
}

bool IsWithheld(const void* caller) noexcept {
    return t_withheld || IsTheFailingOne(caller);
}

void* Came(void* block) noexcept {
    if (block != nullptr) {
        g_blocks.fetch_add(1, std::memory_order_relaxed);
        g_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
    }
    return block;
}

void* Allocate(std::size_t size, const void* caller) noexcept {
    return IsWithheld(caller) ? nullptr : Came(std::malloc(size != 0 ? size : 1));
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment, const void* caller) noexcept {
    const auto boundary = static_cast<std::size_t>(alignment);
    return IsWithheld(caller) ? nullptr
                              : Came(std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary));
}

void Free(void* block) noexcept {
    if (block != nullptr) {
        g_blocks.fetch_sub(1, std::memory_order_relaxed);
        g_bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
        std::free(block);
    }
}

void* OrThrow(void* block) {
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return OrThrow(Allocate(size, __builtin_return_address(0)));
}
void* operator new[](std::size_t size) {
    return OrThrow(Allocate(size, __builtin_return_address(0)));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return OrThrow(AllocateAligned(size, alignment, __builtin_return_address(0)));
}
void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    Free(block);
}

namespace Zarvo::Test {

std::int64_t LiveBlocks() {
    return g_blocks;
}

std::int64_t LiveBytes() {
    return g_bytes;
}

NoMemory::NoMemory() {
    t_withheld = true;
}

NoMemory::~NoMemory() {
    t_withheld = false;
}

FailingNew::FailingNew(int number, AskedBy askedBy) {
    t_chooses = true;
    g_leftToSucceed = number - 1;
    g_othersFail = askedBy == AskedBy::OtherThreads;
    g_oneFails = true;
}

FailingNew::~FailingNew() {
    g_oneFails = false;
    t_chooses = false;
}

bool FailingNew::HasFailed() const {
    return g_leftToSucceed < 0;
}

}  // namespace Zarvo::Test
