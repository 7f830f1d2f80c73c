// How often values of which size came: in buckets that grow with the value, two for each power of two. Number, sum and greatest
// are exact; a percentile is right to a quarter.
//
// Threads: what guards the object guards it.
// Errors: none; no memory but its own. One that is static and all zeros takes none until it is used.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace Orvane::Internal {

class LogHistogram {
  public:
    void Add(std::uint64_t value) noexcept {
        ++m_buckets[BucketOf(value)];
        m_sum += value;
        m_greatest = (std::max)(m_greatest, value);
    }

    void Add(const LogHistogram& other) noexcept {
        for (std::size_t i = 0; i < kBuckets; ++i) {
            m_buckets[i] += other.m_buckets[i];
        }
        m_sum += other.m_sum;
        m_greatest = (std::max)(m_greatest, other.m_greatest);
    }

    std::uint64_t Count() const noexcept {
        std::uint64_t count = 0;
        for (const std::uint64_t bucket : m_buckets) {
            count += bucket;
        }
        return count;
    }

    std::uint64_t Sum() const noexcept { return m_sum; }
    std::uint64_t Greatest() const noexcept { return m_greatest; }

    // About the smallest value that `percent` of all do not exceed; 0 if there are none.
    double Percentile(double percent) const noexcept {
        const auto rank = static_cast<std::uint64_t>(std::ceil(percent / 100 * static_cast<double>(Count())));
        std::uint64_t seen = 0;
        for (std::size_t i = 0; i < kBuckets; ++i) {
            seen += m_buckets[i];
            if (seen != 0 && seen >= rank) {
                return (std::min)(MiddleOf(i), static_cast<double>(m_greatest));
            }
        }
        return 0;
    }

  private:
    // Values below 2^10 share the first bucket, those from 2^49 on the last.
    static constexpr int kFirstBit = 10;
    static constexpr std::size_t kBuckets = 80;

    static std::size_t BucketOf(std::uint64_t value) noexcept {
        const int bit = 63 - std::countl_zero(value);  // the highest one that is set; of zero -1
        if (bit < kFirstBit) {
            return 0;
        }
        const std::uint64_t half = (value >> (bit - 1)) & 1;
        return (std::min)(1 + static_cast<std::size_t>(2 * (bit - kFirstBit)) + static_cast<std::size_t>(half),
                          kBuckets - 1);
    }

    // The last bucket's is beyond all that is counted there but the greatest.
    static double MiddleOf(std::size_t bucket) noexcept {
        if (bucket == 0) {
            return std::ldexp(1.0, kFirstBit - 1);
        }
        const int bit = kFirstBit + static_cast<int>((bucket - 1) / 2);
        return std::ldexp((bucket - 1) % 2 == 0 ? 1.25 : 1.75, bit);
    }

    std::array<std::uint64_t, kBuckets> m_buckets{};
    std::uint64_t m_sum = 0;
    std::uint64_t m_greatest = 0;
};

}  // namespace Orvane::Internal
