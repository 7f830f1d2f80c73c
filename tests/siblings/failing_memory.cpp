#include "tests/siblings/failing_memory.h"

#include <cstdlib>
#include <new>

namespace Zarvo::Test {

namespace {

thread_local std::size_t g_allocations = 0;
thread_local bool g_withheld = false;

void* Allocate(std::size_t size) noexcept {
    ++g_allocations;
    return g_withheld ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

std::size_t AllocationsOfThisThread() noexcept {
    return g_allocations;
}

NoMemory::NoMemory() noexcept {
    g_withheld = true;
}

NoMemory::~NoMemory() {
    g_withheld = false;
}

}  // namespace Zarvo::Test

void* operator new(std::size_t size) {
    return Zarvo::Test::AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return Zarvo::Test::AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Zarvo::Test::Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Zarvo::Test::Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
