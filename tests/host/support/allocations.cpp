// The memory that comes from new, counted and withheld by operators of our own. A module by itself, so that the others
// import them.
#include "tests/support/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constinit std::atomic<std::int64_t> g_blocks = 0;
constinit std::atomic<std::int64_t> g_bytes = 0;
thread_local constinit bool t_withheld = false;

void* Came(void* block) noexcept {
    if (block != nullptr) {
        g_blocks.fetch_add(1, std::memory_order_relaxed);
        g_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
    }
    return block;
}

void* Allocate(std::size_t size) noexcept {
    return t_withheld ? nullptr : Came(std::malloc(size != 0 ? size : 1));
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
    const auto boundary = static_cast<std::size_t>(alignment);
    return t_withheld ? nullptr : Came(std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary));
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
    return OrThrow(Allocate(size));
}
void* operator new[](std::size_t size) {
    return OrThrow(Allocate(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return OrThrow(AllocateAligned(size, alignment));
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

}  // namespace Zarvo::Test
