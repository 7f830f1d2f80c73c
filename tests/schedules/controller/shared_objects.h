// Which objects more than one thread uses, by the keys of memory.h. It grows from schedule to schedule: in the first one each
// object has been used by one thread alone so far.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Schedules {

class SharedObjects {
  public:
    void BeginSchedule() noexcept { ++m_schedule; }

    // Returns whether more than one thread uses it. `grows` becomes true if that was not known.
    bool Use(std::uint64_t key, int thread, bool& grows) noexcept {
        Place& place = PlaceOf(key);
        if (place.isShared) {
            return true;
        }
        if (place.schedule != m_schedule) {
            place.schedule = m_schedule;
            place.thread = thread;
            return false;
        }
        if (place.thread == thread) {
            return false;
        }
        grows = place.isShared = true;
        return true;
    }

  private:
    struct Place {
        std::uint64_t key = 0;
        std::uint32_t schedule = 0;
        std::int16_t thread = 0;
        bool isShared = false;
    };

    // When the table is full the rest shares one place, as objects that are shared.
    Place& PlaceOf(std::uint64_t key) noexcept {
        std::size_t index = (key * 0x9E3779B97F4A7C15U) >> (64 - kBits);
        for (std::size_t i = 0; i < kTries; ++i) {
            Place& place = m_places[index];
            if (place.key == key) {
                return place;
            }
            if (place.key == 0) {
                place.key = key;
                return place;
            }
            index = (index + 1) % m_places.size();
        }
        m_rest.isShared = true;
        return m_rest;
    }

    static constexpr int kBits = 18;
    static constexpr std::size_t kTries = 64;

    std::array<Place, std::size_t{1} << kBits> m_places{};
    Place m_rest;
    std::uint32_t m_schedule = 0;
};

}  // namespace Schedules
