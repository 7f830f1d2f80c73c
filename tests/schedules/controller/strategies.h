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
    std::size_t Choose(const Candidate* candidates, std::size_t count, bool isYield) final;
    virtual void BeginSchedule();

  protected:
    virtual std::size_t Pick(const Candidate* candidates, std::size_t count, bool isYield) = 0;
};

// Every schedule with at most `bound` preemptions, one after the other: the first choice at each decision is the thread that
// goes on anyway. A schedule repeats the choices of the one before up to the last that can still be another.
class AllSchedules : public RecordedStrategy {
  public:
    explicit AllSchedules(int bound) : m_bound(bound) {}

    void BeginSchedule() override;

    // Returns false when there is none.
    bool Next();

    // Whether a schedule did not come to the decisions of the one before.
    bool HasDiverged() const { return m_hasDiverged; }

  protected:
    std::size_t Pick(const Candidate* candidates, std::size_t count, bool isYield) override;

  private:
    struct Decision {
        std::uint8_t count;
        std::uint8_t chosen;
        std::uint8_t firstThread;
        std::uint8_t spent;  // before it
        std::uint32_t costs;  // a bit for each candidate
    };

    const int m_bound;
    int m_spent = 0;
    std::size_t m_place = 0;
    bool m_hasDiverged = false;
    std::vector<Decision> m_decisions;
};

// Probabilistic concurrency testing: threads have priorities, drawn by a seed, and at `depth` - 1 steps, drawn as well, the thread
// that runs becomes the last of all. A defect that needs `depth` steps in an order is found with a known probability.
class PriorityStrategy : public RecordedStrategy {
  public:
    PriorityStrategy(std::uint64_t seed, int depth, std::uint32_t length);

  protected:
    std::size_t Pick(const Candidate* candidates, std::size_t count, bool isYield) override;

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
    std::size_t Pick(const Candidate* candidates, std::size_t count, bool isYield) override;

  private:
    struct Turn {
        int thread;
        std::uint32_t event;
        int next;
    };
    std::vector<Turn> m_turns;
};

}  // namespace Schedules
