#include "tests/schedules/controller/memory.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/report.h"
#include "tests/schedules/controller/uses.h"

namespace Schedules {

namespace {

constexpr std::size_t kBytes = std::size_t{1} << 32;  // of addresses; pages are taken as they are used
constexpr std::size_t kGranule = 16;
constexpr std::size_t kMostBlocks = std::size_t{1} << 26;
constexpr std::size_t kMostStacks = 48;
constexpr std::ptrdiff_t kStackBytes = std::ptrdiff_t{8} << 20;

struct Piece {
    std::uint64_t key;
    std::uint32_t firstGranule;
    std::uint32_t bytes;
    bool isFreed;
    std::uint8_t freedBy;
    std::array<std::uint32_t, kOrderedThreads> usedAt;  // by each thread, on its own clock
};

char* g_bytes = nullptr;
std::uint32_t* g_blockOf = nullptr;  // one number for each granule; 0 for none
Piece* g_blocks = nullptr;

std::size_t g_nextGranule = 1;
std::uint32_t g_nextBlock = 1;
std::size_t g_firstGranule = 1;  // of this schedule
std::uint32_t g_firstBlock = 1;
std::uint32_t g_live = 0;  // of this schedule's blocks
std::array<std::uint32_t, 256> g_allocations;  // by each thread
std::array<const char*, kMostStacks> g_stacks;

template <typename T>
T* Reserve(std::size_t bytes) {
    void* const memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    return static_cast<T*>(memory);
}

bool IsHere(const void* address) noexcept {
    return static_cast<std::size_t>(static_cast<const char*>(address) - g_bytes) < kBytes && g_bytes != nullptr;
}

std::size_t GranuleOf(const void* address) noexcept {
    return static_cast<std::size_t>(static_cast<const char*>(address) - g_bytes) / kGranule;
}

// Null if the address is in none.
Piece* BlockOf(const void* address) noexcept {
    const std::uint32_t number = IsHere(address) ? g_blockOf[GranuleOf(address)] : 0;
    return number != 0 ? &g_blocks[number] : nullptr;
}

void* Allocate(std::size_t bytes) {
    const auto thread = static_cast<std::size_t>(ThreadNumber());
    const std::size_t granules = bytes / kGranule + 1;
    if ((g_nextGranule + granules) * kGranule > kBytes || g_nextBlock == kMostBlocks) {
        Fail("the schedules have used up their memory");
    }
    Piece& block = g_blocks[g_nextBlock];
    const std::uint64_t key = (static_cast<std::uint64_t>(thread) << 32 | ++g_allocations[thread]) << 20;
    block = {key, static_cast<std::uint32_t>(g_nextGranule), static_cast<std::uint32_t>(bytes), false, 0, {}};
    for (std::size_t i = 0; i < granules; ++i) {
        g_blockOf[g_nextGranule + i] = g_nextBlock;
    }
    ++g_nextBlock;
    ++g_live;
    void* const memory = g_bytes + g_nextGranule * kGranule;
    g_nextGranule += granules;
    return memory;
}

void CheckOrder(const Piece& block) {
    for (int i = 0; i < kOrderedThreads; ++i) {
        if (i != ThreadNumber() && block.usedAt[static_cast<std::size_t>(i)] > SeenOf(i)) {
            ShowUse(&block, i);
            Fail("thread %d frees memory that thread %d uses: nothing orders the two", ThreadNumber(), i);
        }
    }
}

// Keeps the memory, filled with what is no good pointer.
void Free(Piece& block, const void* address) {
    const auto number = static_cast<std::uint32_t>(&block - g_blocks);
    if (number >= g_firstBlock) {
        --g_live;
    }
    if (IsControlled() && (block.isFreed || address != g_bytes + std::size_t{block.firstGranule} * kGranule)) {
        Fail("thread %d frees memory that thread %d has freed", ThreadNumber(), block.freedBy);
    }
    if (IsControlled() && ThreadNumber() < kOrderedThreads) {
        CheckOrder(block);
    }
    NoteUseOf(BlockKeyOf(block.key), true);
    block.isFreed = true;
    block.freedBy = static_cast<std::uint8_t>(ThreadNumber());
    std::memset(g_bytes + std::size_t{block.firstGranule} * kGranule, 0xDD, block.bytes);
}

void* New(std::size_t bytes) {
    if (IsControlled()) {
        return Allocate(bytes);
    }
    void* const memory = std::malloc(bytes != 0 ? bytes : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void Delete(void* memory) noexcept {
    if (Piece* const block = BlockOf(memory)) {
        Free(*block, memory);
    } else {
        std::free(memory);
    }
}

// 0 if it is not on that thread's stack.
std::uint64_t KeyOnStack(std::size_t thread, std::uintptr_t address) noexcept {
    const auto depth = static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(g_stacks[thread]) - address);
    const bool isThere = g_stacks[thread] != nullptr && depth >= 0 && depth < kStackBytes;
    return isThere ? std::uint64_t{0xF} << 60 | thread << 32 | static_cast<std::uint64_t>(depth) : 0;
}

}  // namespace

void BeginMemory() {
    if (g_bytes == nullptr) {
        g_bytes = Reserve<char>(kBytes);
        g_blockOf = Reserve<std::uint32_t>(kBytes / kGranule * sizeof(std::uint32_t));
        g_blocks = Reserve<Piece>(kMostBlocks * sizeof(Piece));
    }
    g_allocations = {};
    g_stacks = {};
    NoteStack(0, __builtin_frame_address(0));
    BeginOrder();
    g_firstGranule = g_nextGranule;
    g_firstBlock = g_nextBlock;
    g_live = 0;
}

// What a schedule has left stays where it is: something of the process refers to it. If it has left nothing, its memory is
// the next one's.
void EndMemory() {
    g_report->leftBlocks += g_live;
    if (g_live == 0) {
        std::memset(g_blockOf + g_firstGranule, 0, (g_nextGranule - g_firstGranule) * sizeof(std::uint32_t));
        g_nextGranule = g_firstGranule;
        g_nextBlock = g_firstBlock;
    }
}

std::uint64_t KeyOf(const void* object) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    if (const Piece* const block = BlockOf(object)) {
        return block->key + (address - reinterpret_cast<std::uintptr_t>(g_bytes) - block->firstGranule * kGranule);
    }
    const auto self = static_cast<std::size_t>(std::max(0, ThreadNumber()));
    if (const std::uint64_t key = KeyOnStack(self, address); key != 0) {
        return key;
    }
    for (std::size_t i = 0; i < kMostStacks; ++i) {
        if (const std::uint64_t key = KeyOnStack(i, address); key != 0) {
            return key;
        }
    }
    return std::uint64_t{0xE} << 60 | address;
}

std::uint64_t BlockKeyOf(std::uint64_t key) noexcept {
    return key >> 60 >= 0xE ? 0 : key | 0xFFFFF;
}

void NoteStack(int thread, const void* top) noexcept {
    // A thread that has ended may have had the same one.
    for (const char*& other : g_stacks) {
        const std::ptrdiff_t distance = other - static_cast<const char*>(top);
        if (other != nullptr && distance > -kStackBytes / 2 && distance < kStackBytes / 2) {
            other = nullptr;
        }
    }
    g_stacks[static_cast<std::size_t>(thread)] = static_cast<const char*>(top);
}

void CheckAccess(const void* address, const char* what) {
    Piece* const block = BlockOf(address);
    if (block == nullptr || !IsControlled()) {
        return;
    }
    if (block->isFreed) {
        Fail("thread %d uses memory that thread %d has freed (%s)", ThreadNumber(), block->freedBy, what);
    }
    if (ThreadNumber() < kOrderedThreads) {
        block->usedAt[static_cast<std::size_t>(ThreadNumber())] = OwnClock();
        TraceUse(block, ThreadNumber());
    }
}

}  // namespace Schedules

void* operator new(std::size_t bytes) {
    return Schedules::New(bytes);
}
void* operator new[](std::size_t bytes) {
    return Schedules::New(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return Schedules::New(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return Schedules::New(bytes);
}
void operator delete(void* memory) noexcept {
    Schedules::Delete(memory);
}
void operator delete[](void* memory) noexcept {
    Schedules::Delete(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Schedules::Delete(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    Schedules::Delete(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    Schedules::Delete(memory);
}
