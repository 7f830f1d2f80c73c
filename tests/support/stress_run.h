// What every stress test starts with: how often to repeat, and random numbers that a failure can be replayed with.
//
//     ZARVO_STRESS_SEED    the seed; without it every run takes a new one
//     ZARVO_STRESS_FACTOR  multiplies the rounds of each test; 1 without it, enough to see that the test works
//
// The seed is printed. It replays the choices and the pauses, not the processor's timing: repeat a failing seed with
// a higher factor.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

using Random = std::mt19937_64;

// A number from 0 to `limit` - 1.
inline std::size_t Choose(Random& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

// Lets some time pass: none, a turn of other threads, some microseconds or about a millisecond.
inline void Linger(Random& random) {
    switch (Choose(random, 8)) {
        case 0: Sleep(static_cast<DWORD>(Choose(random, 3))); break;
        case 1:
        case 2: SwitchToThread(); break;
        case 3:
        case 4:
        case 5: {
            const std::chrono::microseconds time(Choose(random, 100));
            for (const Stopwatch stopwatch; stopwatch.Elapsed() < time;) {
            }
            break;
        }
        default: break;
    }
}

class StressRun {
  public:
    // `usualRounds` is the number of rounds without ZARVO_STRESS_FACTOR.
    explicit StressRun(int usualRounds)
        : m_factor(FromEnvironment("ZARVO_STRESS_FACTOR", 1)),
          m_rounds(usualRounds * static_cast<int>(m_factor)),
          m_seed(FromEnvironment("ZARVO_STRESS_SEED", std::random_device()())) {
        std::cout << Description() << std::endl;
    }

    int Rounds() const { return m_rounds; }

    // For one thread of one round.
    Random Generator(int round, std::size_t thread) const {
        std::seed_seq seeds{m_seed, m_seed >> 32U, static_cast<std::uint64_t>(round),
                            static_cast<std::uint64_t>(thread)};
        return Random(seeds);
    }

    // For the failure message.
    std::string Description() const {
        return "ZARVO_STRESS_SEED=" + std::to_string(m_seed) + " ZARVO_STRESS_FACTOR=" + std::to_string(m_factor);
    }

  private:
    static std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
        const char* const text = std::getenv(name);
        return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : otherwise;
    }

    std::uint64_t m_factor;
    int m_rounds;
    std::uint64_t m_seed;
};

}  // namespace Zarvo::Test
