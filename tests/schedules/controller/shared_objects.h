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

    static constexpr int kNotShared = 0;

    // Returns the object's number, or kNotShared if one thread alone uses it. `grows` becomes true if that it is shared was not known.
    int Use(std::uint64_t key, int thread, bool& grows) noexcept {
        Place& place = PlaceOf(key);
        if (place.number != kNotShared) {
            return place.number;
        }
        if (place.schedule != m_schedule) {
            place.schedule = m_schedule;
            place.thread = static_cast<std::int16_t>(thread);
            return kNotShared;
        }
        if (place.thread == thread) {
            return kNotShared;
        }
        grows = true;
        place.number = m_shared++;
        return place.number;
    }

  private:
    struct Place {
        std::uint64_t key = 0;
        std::uint32_t schedule = 0;
        std::int16_t thread = 0;
        int number = kNotShared;
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
        m_rest.number = 1;
        return m_rest;
    }

    static constexpr int kBits = 18;
    static constexpr std::size_t kTries = 64;

    std::array<Place, std::size_t{1} << kBits> m_places{};
    Place m_rest;
    std::uint32_t m_schedule = 0;
    int m_shared = 2;  // 1: the rest
};

}  // namespace Schedules
