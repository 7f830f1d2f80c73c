#include "tests/schedules/controller/strategies.h"

#include <algorithm>
#include <sstream>

#include "tests/schedules/controller/report.h"

namespace Schedules {

std::size_t RecordedStrategy::Choose(const Candidate* candidates, std::size_t count, Decision decision) {
    const std::size_t chosen = Pick(candidates, count, decision);
    ++g_report->decisions;
    if (chosen != 0) {
        if (g_report->turnCount == Report::kMostTurns) {
            Fail("too many turns");
        }
        g_report->turns[g_report->turnCount++] = {EventNumber(), static_cast<std::uint8_t>(DecidingThread()),
                                                  static_cast<std::uint8_t>(candidates[chosen].thread)};
    }
    return chosen;
}

void RecordedStrategy::BeginSchedule() {
    g_report->decisions = 0;
    g_report->turnCount = 0;
    g_report->length = 0;
}

PriorityStrategy::PriorityStrategy(std::uint64_t seed, int depth, std::uint32_t length) : m_random(seed) {
    for (int i = 1; i < depth; ++i) {
        m_changes.push_back(static_cast<std::uint32_t>(m_random() % std::max(1U, length)));
    }
}

int& PriorityStrategy::PriorityOf(int thread) {
    while (m_priorities.size() <= static_cast<std::size_t>(thread)) {
        m_priorities.push_back(static_cast<int>(m_random() % 1'000'000));
    }
    return m_priorities[static_cast<std::size_t>(thread)];
}

std::size_t PriorityStrategy::Pick(const Candidate* candidates, std::size_t count, Decision decision) {
    if (decision == Decision::Yield || decision == Decision::StepBack ||
        std::ranges::find(m_changes, g_report->decisions) != m_changes.end()) {
        PriorityOf(candidates[0].thread) = --m_lowest;
    }
    std::size_t best = 0;
    for (std::size_t i = 1; i < count; ++i) {
        if (candidates[i].isEarly && m_early == kMostEarly) {
            continue;
        }
        if (PriorityOf(candidates[i].thread) > PriorityOf(candidates[best].thread)) {
            best = i;
        }
    }
    m_early += candidates[best].isEarly ? 1 : 0;
    return best;
}

std::string TurnsOfReport() {
    std::ostringstream text;
    for (std::uint32_t i = 0; i < g_report->turnCount; ++i) {
        const Report::Turn& turn = g_report->turns[i];
        text << (i != 0 ? " " : "") << int{turn.thread} << '@' << turn.event << '>' << int{turn.next};
    }
    return text.str();
}

Replay::Replay(const std::string& turns) {
    std::istringstream text(turns);
    Turn turn{};
    for (char at = 0, arrow = 0; text >> turn.thread >> at >> turn.event >> arrow >> turn.next;) {
        m_turns.push_back(turn);
    }
}

std::size_t Replay::Pick(const Candidate* candidates, std::size_t count, Decision) {
    for (const Turn& turn : m_turns) {
        if (turn.thread == DecidingThread() && turn.event == EventNumber()) {
            for (std::size_t i = 0; i < count; ++i) {
                if (candidates[i].thread == turn.next) {
                    return i;
                }
            }
        }
    }
    return 0;
}

}  // namespace Schedules
