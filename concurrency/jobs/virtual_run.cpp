#include "concurrency/jobs/virtual_run.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "concurrency/base/report.h"
#include "concurrency/tasks/future_state.h"
#include "concurrency/tasks/noted_run.h"
#include "concurrency/tasks/run_words.h"

namespace Orvane::Internal {

VirtualRun::VirtualRun() {
    m_actors.emplace_back();
    m_first = m_current = m_actors.begin();
    m_first->isAsked = true;  // it has no task
    m_first->hasBaton = true;
}

VirtualRun::~VirtualRun() {
    RunToTheEnd();
}

VirtualRun* VirtualRun::OfThisThread() noexcept {
    // There is no other time but the real one.
    return static_cast<VirtualRun*>(ThreadTime::OfThisThread());
}

void VirtualRun::Start(const Task& task) {
    m_starts.push_back(task);
}

std::uint64_t VirtualRun::AddTimer(MonotonicClock::time_point when, Timer timer) {
    m_timers.emplace(m_lastTimer + 1, TimerRecord{when, std::move(timer)});
    return ++m_lastTimer;
}

void VirtualRun::RemoveTimer(std::uint64_t number) noexcept {
    m_timers.erase(number);
}

void VirtualRun::Block(const std::function<bool()>& isReady, MonotonicClock::time_point deadline) {
    const auto self = m_current;
    self->isReady = isReady;
    self->deadline = deadline;
    self->isBlocked = true;
    m_actors.splice(m_actors.end(), m_actors, self);
    PassOn();
    AwaitBaton(*self);
    m_current = self;
    self->isBlocked = false;
    self->isReady = nullptr;
    if (std::exchange(self->isStuck, false)) {
        throw std::logic_error("in virtual time nothing is left that could end this wait");
    }
}

void VirtualRun::AwaitBaton(Actor& actor) {
    RankedLock lock(m_mutex);
    m_handedOver.wait(lock, [&actor] { return actor.hasBaton; });
}

void VirtualRun::Give(Actors::iterator actor) {
    {
        const RankedLock lock(m_mutex);
        for (Actor& other : m_actors) {
            other.hasBaton = false;
        }
        actor->hasBaton = true;
    }
    m_handedOver.notify_all();
}

void VirtualRun::PassOn() {
    while (!PassToReady() && !PassToNew()) {
        if (!MoveTime()) {
            m_first->isStuck = true;
            Give(m_first);
            return;
        }
    }
}

bool VirtualRun::PassToReady() {
    const auto ready = std::find_if(m_actors.begin(), m_actors.end(), [this](const Actor& actor) {
        return actor.isBlocked && (actor.deadline <= m_now || actor.isReady());
    });
    if (ready == m_actors.end()) {
        return false;
    }
    Give(ready);
    return true;
}

bool VirtualRun::PassToNew() {
    if (m_starts.empty()) {
        return false;
    }
    const auto actor = m_actors.emplace(m_actors.end());
    actor->task = std::move(m_starts.front());
    m_starts.pop_front();
    actor->thread = NativeThread::Start([this, actor](TaskNote& note) { RunActor(actor, note); },
                                        "an exception has left a thread of virtual time");
    Give(actor);
    return true;
}

void VirtualRun::RunActor(Actors::iterator actor, TaskNote& note) {
    const ThreadTime::Scope scope(*this);
    AwaitBaton(*actor);
    m_current = actor;
    WithNote(actor->task, note, [&] { actor->task(); });
    actor->task = Task();
    m_ended.splice(m_ended.end(), m_actors, actor);
    PassOn();
}

// Returns false if nothing will ever happen.
bool VirtualRun::MoveTime() {
    if (m_isHoldingTime) {
        return false;
    }
    auto next = kNever;
    for (const Actor& actor : m_actors) {
        next = actor.isBlocked ? (std::min)(next, actor.deadline) : next;
    }
    for (const auto& [number, record] : m_timers) {
        next = (std::min)(next, record.when);
    }
    if (next == kNever) {
        return false;
    }
    m_now = (std::max)(m_now, next);
    for (auto due = m_timers.begin(); due != m_timers.end();) {
        if (due->second.when > m_now) {
            ++due;
            continue;
        }
        const std::uint64_t number = due->first;
        const auto again = due->second.timer();
        due = m_timers.upper_bound(number);
        if (const auto record = m_timers.find(number); record != m_timers.end()) {
            record->second.when = again;
            if (again == kNever) {
                m_timers.erase(record);
            }
        }
    }
    return true;
}

void VirtualRun::RunUntilIdle() {
    m_isHoldingTime = true;
    try {
        Block([] { return false; }, kNever);
    } catch (const std::logic_error&) {  // NOLINT(bugprone-empty-catch)
        // It is idle.
    }
    m_isHoldingTime = false;
}

void VirtualRun::RunToTheEnd() noexcept try {
    const auto isOver = [this] { return m_actors.size() == 1 && m_starts.empty(); };
    while (!isOver()) {
        try {
            Block(isOver, kNever);
        } catch (const std::logic_error&) {
            CancelActors();
        }
    }
    for (Actor& actor : m_ended) {
        actor.thread.Join();
    }
    m_ended.clear();
} catch (...) {
    EndProcessInRun("virtual time cannot run its jobs to their ends");
}

// One that is asked already and waits for ever all the same would never end, nor would this object.
void VirtualRun::CancelActors() {
    bool isAnyAsked = false;
    for (Actor& actor : m_actors) {
        if (!std::exchange(actor.isAsked, true)) {
            isAnyAsked = true;
            actor.task.Cancel();
        }
    }
    if (!isAnyAsked) {
        ReportNoThrow(8, 16, L"Concurrency.Job", L"In virtual time a job does not answer its cancellation");
        EndProcessOfDeafJob();
    }
}

// Of the job that has been blocked longest: the first one that has a task.
void VirtualRun::EndProcessOfDeafJob() const noexcept {
    LastWords words("in virtual time a job does not answer its cancellation");
    for (const Actor& actor : m_actors) {
        if (actor.thread.IsJoinable()) {
            if (const auto run = std::dynamic_pointer_cast<FutureState>(Task(actor.task).GetWrapper()->GetFuture())) {
                run->NameRun(words);
            }
            words.AddThread(actor.thread.GetId());
            break;
        }
    }
    words.EndProcess();
}

}  // namespace Orvane::Internal
