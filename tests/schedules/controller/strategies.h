// Which threads go on.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/schedules/controller/controller.h"

namespace Schedules {

// Keeps what was chosen in the report, so that a schedule that fails can be told.
class RecordedStrategy : public Strategy {
  public:
    std::size_t Choose(const Candidate* candidates, std::size_t count, Decision decision) final;
    virtual void BeginSchedule();
    void EndStep(const Footprint&) override {}
    void BeginStep(int) override {}

  protected:
    virtual std::size_t Pick(const Candidate* candidates, std::size_t count, Decision decision) = 0;
};

// Probabilistic concurrency testing: threads have priorities, drawn by a seed, and at `depth` - 1 steps, drawn as well, the thread
// that runs becomes the last of all. A defect that needs `depth` steps in an order is found with a known probability.
class PriorityStrategy : public RecordedStrategy {
  public:
    PriorityStrategy(std::uint64_t seed, int depth, std::uint32_t length);

  protected:
    std::size_t Pick(const Candidate* candidates, std::size_t count, Decision decision) override;

  private:
    int& PriorityOf(int thread);

    std::mt19937_64 m_random;
    std::vector<std::uint32_t> m_changes;
    std::vector<int> m_priorities;
    int m_lowest = 0;

    // Deadlines that come although others can run: a thread that waits again and again must not keep them from it for ever.
    static constexpr int kMostEarly = 3;
    int m_early = 0;
};

// The turns of a schedule as text: in "0@57>1 1@12>0", thread 1 came after thread 0 at event 57 of that, and so on. An event is
// whatever could be a point; so the text does not depend on which objects are known to be shared.
std::string TurnsOfReport();

class Replay : public RecordedStrategy {
  public:
    explicit Replay(const std::string& turns);

  protected:
    std::size_t Pick(const Candidate* candidates, std::size_t count, Decision decision) override;

  private:
    struct Turn {
        int thread;
        std::uint32_t event;
        int next;
    };
    std::vector<Turn> m_turns;
};

}  // namespace Schedules
