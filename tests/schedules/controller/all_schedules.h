// Every schedule with at most so many preemptions, one after the other: the first choice at each decision is the thread that goes on
// anyway. A schedule repeats the choices of the one before up to the last that can still be another.
//
// Schedules that differ only in the order of steps without a conflict are one: all of them end alike. Of those the first one is run,
// by the order of the choices at the first decision in which they differ. A choice is left out if each schedule with it has a like one before it with
// no more preemptions:
//
// 1. A thread that was put off at a decision, after a schedule in which it was not, sleeps: until another thread does what conflicts
//    with what it would do. A choice of a thread that sleeps is left out: it could as well have come at that decision. If it was
//    interrupted there, one step counts, as the interruption can come after the step. If it was one choice of several, all counts
//    that it does until it stops, as an interruption within would be one more.
// 2. Where a thread could go on with a step: after all schedules in which it does, it is known what others do if it is interrupted behind
//    the step instead. If nothing of that conflicts with the step, an interruption before the step is left out.
//
// Not for scenarios in which it costs, too, to go on with another thread than the next one: there a step that makes another thread
// able to go on changes who is next, so the like schedule may cost more.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "tests/schedules/controller/strategies.h"

namespace Schedules {

class AllSchedules : public RecordedStrategy {
  public:
    // `whole`: nothing is left out.
    explicit AllSchedules(int bound, bool whole = false) : m_bound(bound), m_whole(whole) {}

    void BeginSchedule() override;
    void EndStep(const Footprint& step) override;
    void BeginStep(int thread) override;

    // Returns false when there is none.
    bool Next();

    // Whether a schedule did not come to the decisions of the one before.
    bool HasDiverged() const { return m_hasDiverged; }

    // Whether the schedule was like one before: its thread that slept was the only one to go on.
    bool IsRepeated() const { return m_isRepeated; }

  protected:
    std::size_t Pick(const Candidate* candidates, std::size_t count, Decision decision) override;

  private:
    static constexpr std::size_t kMostThreads = 64;

    // What is kept of the first choices; the others are run.
    static constexpr std::size_t kMostKept = 12;

    struct Choice {
        std::uint8_t thread;
        bool isEarly;
        std::uint8_t cost;
        bool sleeps;
        bool isNeedless;  // by rule 2
        bool wasRun;
    };

    struct Place {
        Decision decision;
        std::uint8_t decider;
        bool followsStep;  // it ends the step that began at the place before
        bool endsIn;  // there is such a place behind it, of this choice
        std::uint8_t chosen;
        std::uint8_t spent;  // before it
        std::vector<Choice> choices;

        // What the first choice has used up to the next place; and with others than the decider's turn, each what it has used
        // until it stopped, and what was used until the decider went on.
        Footprint step;
        bool isStepWhole;
        std::array<Footprint, kMostKept> run;
        std::array<bool, kMostKept> isRunWhole;
        std::array<Footprint, kMostKept> meanwhile;
    };

    Place& Add(const Candidate* candidates, std::size_t count, Decision decision);
    bool MayChoose(const Place& place, std::size_t choice) const;
    void Take(Place& place);
    void PutToSleep(const Place& place);
    static void FindNeedless(Place& place, const Place& next);
    static Footprint Meanwhile(const Place& next);
    void EndRepeated();

    const int m_bound;
    const bool m_whole;

    std::deque<Place> m_places;  // those from m_count on are kept for their memory
    std::size_t m_count = 0;

    // Of the schedule that is under way.
    int m_spent = 0;
    std::size_t m_place = 0;
    bool m_hasDiverged = false;
    bool m_isRepeated = false;
    int m_running = 0;
    std::size_t m_threads = 0;  // of all schedules
    bool m_hasSwitched = false;  // to another thread, since the latest decision
    std::pair<Place*, std::size_t> m_begun{};  // the choice just made, if it is made for the first time
    Place* m_stepOf = nullptr;  // where the step began, if it is the first choice of a decision
    std::vector<std::pair<Place*, std::size_t>>
        m_runs;  // choices of the thread that runs, made for the first time, since when it goes on
    std::array<const Footprint*, kMostThreads> m_sleeping{};
    std::array<Footprint*, kMostThreads> m_meanwhile{};
};

}  // namespace Schedules
