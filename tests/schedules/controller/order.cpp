#include "tests/schedules/controller/order.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "tests/schedules/controller/controller.h"

namespace Schedules {

namespace {

using Clocks = std::array<std::uint32_t, kOrderedThreads>;

struct Place {
    std::uint64_t key;
    std::uint32_t schedule;
    Clocks clocks;
};

constexpr int kBits = 13;

std::array<Clocks, kOrderedThreads> g_threads;
std::array<Place, std::size_t{1} << kBits> g_places;
std::uint32_t g_schedule = 0;

void Join(Clocks& to, const Clocks& from) noexcept {
    for (std::size_t i = 0; i < to.size(); ++i) {
        to[i] = std::max(to[i], from[i]);
    }
}

// When the table is full, objects share places: that only adds order.
Place& PlaceOf(std::uint64_t key) noexcept {
    std::size_t index = (key * 0x9E3779B97F4A7C15U) >> (64 - kBits);
    for (int i = 0; i < 16; ++i) {
        Place& place = g_places[index];
        if (place.schedule != g_schedule) {
            place = {key, g_schedule, {}};
            return place;
        }
        if (place.key == key) {
            return place;
        }
        index = (index + 1) % g_places.size();
    }
    return g_places[index];
}

bool IsOrdered(int thread) noexcept {
    return thread >= 0 && thread < kOrderedThreads;
}

}  // namespace

void BeginOrder() noexcept {
    ++g_schedule;
    g_threads = {};
    g_threads[0][0] = 1;
}

void Acquire(std::uint64_t key) noexcept {
    if (IsOrdered(ThreadNumber())) {
        Join(g_threads[static_cast<std::size_t>(ThreadNumber())], PlaceOf(key).clocks);
    }
}

void Release(std::uint64_t key) noexcept {
    if (IsOrdered(ThreadNumber())) {
        const auto self = static_cast<std::size_t>(ThreadNumber());
        Join(PlaceOf(key).clocks, g_threads[self]);
        ++g_threads[self][self];
    }
}

void BeginOrderOf(int thread, int parent) noexcept {
    if (IsOrdered(thread) && IsOrdered(parent)) {
        Clocks& clocks = g_threads[static_cast<std::size_t>(thread)];
        Clocks& parents = g_threads[static_cast<std::size_t>(parent)];
        clocks = parents;
        clocks[static_cast<std::size_t>(thread)] = 1;
        ++parents[static_cast<std::size_t>(parent)];
    }
}

void JoinOrderOf(int thread) noexcept {
    if (IsOrdered(thread) && IsOrdered(ThreadNumber())) {
        Join(g_threads[static_cast<std::size_t>(ThreadNumber())], g_threads[static_cast<std::size_t>(thread)]);
    }
}

std::uint32_t OwnClock() noexcept {
    const auto self = static_cast<std::size_t>(ThreadNumber());
    return g_threads[self][self];
}

std::uint32_t SeenOf(int thread) noexcept {
    return g_threads[static_cast<std::size_t>(ThreadNumber())][static_cast<std::size_t>(thread)];
}

}  // namespace Schedules
