// What a part of a schedule has read and written of what more than one thread uses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Schedules {

// By the numbers of SharedObjects. Two objects with the same place in here are taken for one, so a conflict may be seen that is
// none, never the other way round.
class Footprint {
  public:
    void Add(std::size_t number, bool writes) noexcept {
        auto& words = writes ? m_writes : m_reads;
        words[number / 64 % kWords] |= std::uint64_t{1} << number % 64;
    }
    void Add(const Footprint& other) noexcept {
        for (std::size_t i = 0; i < kWords; ++i) {
            m_reads[i] |= other.m_reads[i];
            m_writes[i] |= other.m_writes[i];
        }
    }

    // Whether one of the two writes what the other one uses: their order matters.
    bool ConflictsWith(const Footprint& other) const noexcept {
        std::uint64_t common = 0;
        for (std::size_t i = 0; i < kWords; ++i) {
            common |= (m_writes[i] & (other.m_reads[i] | other.m_writes[i])) | (m_reads[i] & other.m_writes[i]);
        }
        return common != 0;
    }

  private:
    static constexpr std::size_t kWords = 16;

    std::array<std::uint64_t, kWords> m_reads{};
    std::array<std::uint64_t, kWords> m_writes{};
};

}  // namespace Schedules
