#include "tests/schedules/controller/uses.h"

#include <array>
#include <utility>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/shared_objects.h"

namespace Schedules {

namespace {

// Of words of memory.
constinit SharedObjects g_words;
bool g_hasMissed = false;
Footprint g_step;

constexpr std::size_t kMostTraced = 1 << 14;
constexpr std::size_t kMostThreads = 64;

bool g_keepsTrace = false;
std::uint64_t g_trace = 0;
std::array<std::uint64_t, kMostTraced> g_latestWrite;  // of each word
std::array<std::uint64_t, kMostThreads> g_usesOf;  // each thread

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) noexcept {
    std::uint64_t mixed = (a ^ (b + 0x9E3779B97F4A7C15U + (a << 6) + (a >> 2))) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 29)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 32);
}

void AddToTrace(std::uint64_t key, std::size_t number, bool writes) noexcept {
    const auto thread = static_cast<std::size_t>(ThreadNumber());
    const std::uint64_t use = Mix(++g_usesOf[thread % kMostThreads], thread);
    std::uint64_t& latest = g_latestWrite[number % kMostTraced];
    g_trace += Mix(Mix(use, key), latest);
    if (writes) {
        latest = use;
    }
}

// Returns the number of what the key names.
std::size_t AddToStep(std::uint64_t key, bool writes) noexcept {
    if (!IsControlled()) {
        return SharedObjects::kNotShared;
    }
    const auto number = static_cast<std::size_t>(g_words.Use(key, ThreadNumber(), g_hasMissed));
    if (number != SharedObjects::kNotShared) {
        g_step.Add(number, writes);
    }
    return number;
}

}  // namespace

void NoteUseOf(std::uint64_t key, bool writes) noexcept {
    const std::size_t number = AddToStep(key, writes);
    if (g_keepsTrace && number != SharedObjects::kNotShared) {
        AddToTrace(key, number, writes);
    }
}

void NoteAttempt(const void* object) noexcept {
    AddToStep(KeyOf(object) & ~std::uint64_t{7}, true);
}

void NoteUse(const void* object, bool writes) noexcept {
    if (!IsControlled()) {
        return;
    }
    const std::uint64_t key = KeyOf(object) & ~std::uint64_t{7};
    NoteUseOf(key, writes);
    if (const std::uint64_t block = BlockKeyOf(key); block != 0) {
        NoteUseOf(block, false);
    }
}

void BeginUses() noexcept {
    g_words.BeginSchedule();
    g_hasMissed = false;
    g_step = {};
    g_trace = 0;
    if (g_keepsTrace) {
        g_latestWrite = {};
        g_usesOf = {};
    }
}

Footprint TakeStep() noexcept {
    return std::exchange(g_step, {});
}

bool HasMissedUses() noexcept {
    return g_hasMissed;
}

void KeepTrace() noexcept {
    g_keepsTrace = true;
}

std::uint64_t TraceOfUses() noexcept {
    return g_trace;
}

}  // namespace Schedules
