#include "tests/schedules/controller/all_schedules.h"

#include <algorithm>

#include "tests/schedules/controller/report.h"

namespace Schedules {

void AllSchedules::BeginSchedule() {
    RecordedStrategy::BeginSchedule();
    m_spent = 0;
    m_place = 0;
    m_isRepeated = false;
    m_running = 0;
    m_hasSwitched = true;
    EndRepeated();
}

// Nothing is kept of what comes.
void AllSchedules::EndRepeated() {
    m_stepOf = nullptr;
    m_begun = {};
    m_runs.clear();
    m_sleeping = {};
    m_meanwhile = {};
}

void AllSchedules::EndStep(const Footprint& step) {
    if (m_isRepeated) {
        return;
    }
    if (m_stepOf != nullptr) {
        m_stepOf->step.Add(step);
    }
    for (const auto& [place, choice] : m_runs) {
        place->run[choice].Add(step);
    }
    for (std::size_t i = 0; i < m_threads; ++i) {
        if (m_meanwhile[i] != nullptr) {
            m_meanwhile[i]->Add(step);
        }
        if (m_sleeping[i] != nullptr && m_sleeping[i]->ConflictsWith(step)) {
            m_sleeping[i] = nullptr;
        }
    }
}

void AllSchedules::BeginStep(int thread) {
    if (m_isRepeated) {
        return;
    }
    const auto number = static_cast<std::size_t>(thread);
    if (m_sleeping[number] != nullptr) {
        m_isRepeated = true;
        EndRepeated();
        return;
    }
    m_threads = std::max(m_threads, number + 1);
    m_meanwhile[number] = nullptr;
    if (thread != m_running) {
        m_running = thread;
        m_hasSwitched = true;
        if (m_stepOf != nullptr) {
            m_stepOf->isStepWhole = true;
            m_stepOf = nullptr;
        }
        for (const auto& [place, choice] : m_runs) {
            place->isRunWhole[choice] = true;
        }
        m_runs.clear();
    }
    if (m_begun.first != nullptr) {
        m_runs.push_back(std::exchange(m_begun, {}));
    }
}

AllSchedules::Place& AllSchedules::Add(const Candidate* candidates, std::size_t count, Decision decision) {
    if (m_count == m_places.size()) {
        m_places.emplace_back();
    }
    Place& place = m_places[m_count];
    place.decision = decision;
    place.decider = static_cast<std::uint8_t>(DecidingThread());
    place.followsStep = false;
    if (m_count != 0) {
        Place& before = m_places[m_count - 1];
        before.endsIn = true;
        place.followsStep = !m_hasSwitched && before.decision == Decision::GoOn && before.chosen == 0;
    }
    place.endsIn = false;
    place.chosen = 0;
    place.spent = static_cast<std::uint8_t>(m_spent);
    place.choices.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const Candidate& candidate = candidates[i];
        const bool sleeps =
            decision != Decision::Wake && m_sleeping[static_cast<std::size_t>(candidate.thread)] != nullptr;
        place.choices.push_back({static_cast<std::uint8_t>(candidate.thread), candidate.isEarly,
                                 static_cast<std::uint8_t>(candidate.cost), sleeps, false, false});
    }
    place.step = {};
    place.isStepWhole = false;
    return place;
}

bool AllSchedules::MayChoose(const Place& place, std::size_t choice) const {
    const Choice& what = place.choices[choice];
    return !what.sleeps && !what.isNeedless && place.spent + what.cost <= m_bound;
}

std::size_t AllSchedules::Pick(const Candidate* candidates, std::size_t count, Decision decision) {
    if (m_isRepeated) {
        return 0;
    }
    if (m_place == m_count) {
        Place& place = Add(candidates, count, decision);
        while (place.chosen < count && !MayChoose(place, place.chosen)) {
            ++place.chosen;
        }
        if (place.chosen == count) {
            m_isRepeated = true;
            EndRepeated();
            return 0;
        }
        ++m_count;
    }
    Place& place = m_places[m_place++];
    if (place.choices.size() != count || place.choices.front().thread != candidates[0].thread) {
        if (!m_hasDiverged) {
            AddToReport("[decision %u: %zu candidates, first thread %u; now %zu, %d] ", g_report->decisions,
                        place.choices.size(), place.choices.front().thread, count, candidates[0].thread);
        }
        m_hasDiverged = true;
        return 0;
    }
    Take(place);
    return place.chosen;
}

void AllSchedules::Take(Place& place) {
    const std::size_t chosen = place.chosen;
    Choice& choice = place.choices[chosen];
    m_spent += choice.cost;
    if (m_stepOf != nullptr) {
        m_stepOf->isStepWhole = place.decision != Decision::Wake;
        m_stepOf = nullptr;
    }
    m_hasSwitched = false;
    const bool isFirst = !std::exchange(choice.wasRun, true);
    if (m_whole) {
        return;
    }
    if (place.decision == Decision::Wake) {
        m_runs.clear();
        return;
    }
    PutToSleep(place);
    if (chosen < kMostKept && isFirst) {
        place.run[chosen] = {};
        place.isRunWhole[chosen] = false;
        place.meanwhile[chosen] = {};
        if (!(place.decision == Decision::GoOn && chosen == 0)) {
            m_begun = {&place, chosen};
        }
    }
    if (place.decision == Decision::GoOn && chosen == 0 && isFirst) {
        m_stepOf = &place;
    }
    if (place.followsStep && choice.thread != place.decider && chosen < kMostKept) {
        m_meanwhile[place.decider] = &place.meanwhile[chosen];
    }
}

void AllSchedules::PutToSleep(const Place& place) {
    for (std::size_t i = 0; i < place.chosen && i < kMostKept; ++i) {
        const Choice& choice = place.choices[i];
        const Footprint*& sleeping = m_sleeping[choice.thread];
        if (!choice.wasRun || choice.isEarly || sleeping != nullptr) {
            continue;
        }
        if (place.decision == Decision::GoOn && i == 0) {
            if (place.isStepWhole) {
                sleeping = &place.step;
            }
        } else if (place.isRunWhole[i]) {
            sleeping = &place.run[i];
        }
    }
}

// What was used by others since one of them was chosen, until the thread that decided there went on. Of all choices together: what
// conflicts may come behind another one of them, while that one sleeps here.
Footprint AllSchedules::Meanwhile(const Place& next) {
    Footprint all;
    for (std::size_t i = 0; i < next.choices.size(); ++i) {
        const Choice& other = next.choices[i];
        if (other.thread != next.decider && (other.wasRun || other.isNeedless)) {
            all.Add(next.meanwhile[i]);
        }
    }
    return all;
}

void AllSchedules::FindNeedless(Place& place, const Place& next) {
    if (!place.isStepWhole || !next.followsStep || next.decision == Decision::Wake || next.choices.size() > kMostKept ||
        place.choices.size() > kMostKept) {
        return;
    }
    const Footprint used = Meanwhile(next);
    if (place.step.ConflictsWith(used)) {
        return;
    }
    for (std::size_t i = 1; i < place.choices.size(); ++i) {
        Choice& choice = place.choices[i];
        const auto same = std::ranges::find_if(next.choices, [&](const Choice& other) {
            return other.thread == choice.thread && other.isEarly == choice.isEarly;
        });
        if (same != next.choices.end() && (same->wasRun || same->isNeedless)) {
            choice.isNeedless = true;
            place.meanwhile[i] = used;
        }
    }
}

bool AllSchedules::Next() {
    m_count = std::min(m_place, m_count);
    for (; m_count != 0; --m_count) {
        Place& last = m_places[m_count - 1];
        if (!m_whole && last.chosen == 0 && last.decision == Decision::GoOn && last.endsIn) {
            FindNeedless(last, m_places[m_count]);
        }
        last.endsIn = false;
        while (++last.chosen < last.choices.size()) {
            if (MayChoose(last, last.chosen)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace Schedules
