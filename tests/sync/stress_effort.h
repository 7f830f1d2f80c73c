// How long the stress tests go on, and what they draw their chances from.
//
// ZARVO_STRESS_ROUNDS multiplies the work of each test: 1 without it, enough to see that the test works.
// ZARVO_STRESS_SEED replays a run; without it every run draws its own. Each test says both on standard output.
#pragma once

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace Zarvo::Test {

class StressEffort {
  public:
    // `usual` is the number of rounds without ZARVO_STRESS_ROUNDS.
    explicit StressEffort(int usual)
        : m_rounds(usual * static_cast<int>(FromEnvironment("ZARVO_STRESS_ROUNDS", 1))),
          m_seed(static_cast<unsigned>(FromEnvironment("ZARVO_STRESS_SEED", std::random_device()()))) {
        std::cout << m_rounds << " rounds, seed " << m_seed << std::endl;
    }

    int Rounds() const { return m_rounds; }

    // A source of chances of its own for each thread of a test.
    std::mt19937 Chances(unsigned thread) const {
        std::seed_seq seeds{m_seed, thread};
        return std::mt19937(seeds);
    }

  private:
    static unsigned long FromEnvironment(const char* variable, unsigned long otherwise) {
        const char* const text = std::getenv(variable);
        return text != nullptr && *text != '\0' ? std::strtoul(text, nullptr, 10) : otherwise;
    }

    int m_rounds;
    unsigned m_seed;
};

}  // namespace Zarvo::Test
