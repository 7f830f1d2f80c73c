#include "tests/schedules/controller/controller.h"

#include <algorithm>
#include <utility>

#include "tests/schedules/controller/baton.h"
#include "tests/schedules/controller/memory.h"
#include "tests/schedules/controller/order.h"
#include "tests/schedules/controller/posix.h"
#include "tests/schedules/controller/report.h"
#include "tests/schedules/controller/shared_objects.h"
#include "tests/schedules/controller/uses.h"

namespace Schedules {

namespace {

constexpr int kMostThreads = 48;
constexpr std::uint32_t kMostPoints = 100'000;
constexpr int kYieldsBeforeOthersMust = 300;
constexpr int kLooksBeforeOthersMust = 40;

struct Thread {
    Baton baton;
    bool hasLeft = false;
    const Wait* wait = nullptr;
    int atomicDepth = 0;
    std::uint32_t events = 0;
    bool skipsNext = false;

    // The latest look, and how often it was repeated in vain.
    const void* lookedAt = nullptr;
    std::uint64_t saw = 0;
    std::uint64_t lookedInTurn = 0;
    int looksInVain = 0;
    int yields = 0;

    // How often it has read a clock since the latest point.
    std::uint32_t readInTurn = 0;
    int readings = 0;
};

std::array<Thread, kMostThreads> g_threads;
int g_count = 0;
int g_current = 0;
bool g_isRunning = false;
bool g_isDeciding = false;  // what is allocated then is no thread's
std::int64_t g_now = 0;
std::uint64_t g_turn = 0;  // changes when another thread goes on
Terms g_terms;
Strategy* g_strategy = nullptr;
Facts g_facts;

thread_local constinit int t_number = -1;
constinit SharedObjects g_sharedObjects;
bool g_areAllShared = false;
bool g_letsTimePass = false;  // what was chosen last: a wait whose deadline comes

void PassTurnTo(int number) noexcept {
    g_current = number;
    ++g_turn;
    g_threads[number].baton.Pass();
}

bool CanGoOn(const Thread& thread) {
    return !thread.hasLeft && (thread.wait == nullptr || thread.wait->isOver(thread.wait->object));
}

// The waiting thread whose deadline comes first; -1 if there is none.
int NextByDeadline() {
    int next = -1;
    for (int i = 0; i < g_count; ++i) {
        const Thread& thread = g_threads[i];
        if (!thread.hasLeft && thread.wait != nullptr && thread.wait->deadline != kNever &&
            !thread.wait->isOver(thread.wait->object) &&
            (next < 0 || thread.wait->deadline < g_threads[next].wait->deadline)) {
            next = i;
        }
    }
    return next;
}

void DescribeThreads() {
    for (int i = 0; i < g_count; ++i) {
        const Thread& thread = g_threads[i];
        if (!thread.hasLeft) {
            AddToReport("\n    thread %d: %s", i, thread.wait != nullptr ? thread.wait->what : "runs");
        }
    }
}

// Which thread goes on.
int Choose(Decision decision) {
    std::array<Candidate, kMostThreads + 1> candidates;
    std::size_t count = 0;
    if (decision == Decision::GoOn || decision == Decision::Yield) {
        candidates[count++] = {g_current, 0};
    }
    for (int step = 1; step <= g_count; ++step) {
        const int i = (g_current + step) % g_count;
        if (i != g_current && CanGoOn(g_threads[i])) {
            candidates[count] = {i, decision == Decision::GoOn || (g_terms.delays && count != 0) ? 1 : 0};
            ++count;
        }
    }
    const int timed = NextByDeadline();
    g_strategy->EndStep(TakeStep());
    if (count == 0 && decision == Decision::StepBack && timed < 0) {
        g_strategy->BeginStep(g_current);
        return g_current;
    }
    if (timed >= 0 && (count == 0 || g_threads[timed].wait->deadline - g_now <= g_terms.patience)) {
        candidates[count] = {timed, count == 0 ? 0 : 1, count != 0};
        ++count;
    }
    if (count == 0) {
        AddToReport("no thread can go on:");
        DescribeThreads();
        Fail("%s", "");
    }
    std::size_t chosen = 0;
    if (count > 1) {
        g_isDeciding = true;
        chosen = g_strategy->Choose(candidates.data(), count, decision);
        g_isDeciding = false;
    }
    const int next = candidates[chosen].thread;
    g_strategy->BeginStep(next);
    if (next == timed) {
        g_letsTimePass = true;
        g_now = std::max(g_now, g_threads[next].wait->deadline);
    }
    return next;
}

void GoOn(Decision decision) {
    const int number = t_number;
    const int next = Choose(decision);
    if (next != number) {
        PassTurnTo(next);
        g_threads[number].baton.Await();
    }
}

void CountPoint() {
    if (++g_facts.points > kMostPoints) {
        AddToReport("more than %u points:", kMostPoints);
        DescribeThreads();
        Fail("%s", "");
    }
}

// Whether more than one thread uses the object, as far as is known.
bool IsShared(const void* object) {
    return g_sharedObjects.Use(KeyOf(object), t_number, g_facts.sharesMore) != SharedObjects::kNotShared;
}

void Take(Decision decision, const char* what, const void* object, const void* where) {
    CountPoint();
    GoOn(decision);
    Trace(what, object, where);
}

}  // namespace

bool IsControlled() noexcept {
    return g_isRunning && t_number >= 0 && !g_isDeciding;
}

int ThreadNumber() noexcept {
    return t_number;
}

int DecidingThread() noexcept {
    return g_current;
}

std::uint32_t EventNumber() noexcept {
    return g_threads[g_current].events;
}

std::int64_t Now() noexcept {
    NoteUse(&g_now, false);
    return g_now;
}

std::int64_t NowAfterReading() noexcept {
    constexpr int kReadingsInVain = 1000;
    constexpr std::int64_t kStep = 10'000;
    NoteUse(&g_now, false);
    Thread& self = g_threads[t_number];
    if (self.readInTurn != g_facts.points) {
        self.readInTurn = g_facts.points;
        self.readings = 0;
    } else if (++self.readings > kReadingsInVain) {
        NoteUse(&g_now, true);
        g_now += kStep;
    }
    return g_now;
}

void Point(const char* what, const void* object, const void* where) {
    if (!IsControlled()) {
        return;
    }
    Thread& self = g_threads[t_number];
    const bool isShared = IsShared(object) || g_areAllShared;
    CheckAccess(object, what);
    self.lookedAt = nullptr;
    if (self.atomicDepth == 0) {
        ++self.events;
    }
    if (self.atomicDepth != 0 || std::exchange(self.skipsNext, false) || !isShared) {
        return;
    }
    Take(Decision::GoOn, what, object, where);
}

void Touch(const void* object) noexcept {
    if (IsControlled()) {
        static_cast<void>(IsShared(object));
        CheckAccess(object, "touch");
    }
}

void Look(const char* what, const void* object, std::uint64_t value, const void* where) {
    if (!IsControlled()) {
        return;
    }
    Thread& self = g_threads[t_number];
    const bool isInVain = self.lookedAt == object && self.saw == value && self.lookedInTurn == g_turn;
    if (!isInVain) {
        Point(what, object, where);
        self.lookedAt = object;
        self.saw = value;
        self.lookedInTurn = g_turn;
        self.looksInVain = 0;
    } else if (++self.looksInVain >= kLooksBeforeOthersMust && self.atomicDepth == 0) {
        self.looksInVain = 0;
        ++self.events;
        Take(Decision::StepBack, what, object, where);
    }
    NoteUse(object, false);
}

bool HasJustLookedAt(const void* object) noexcept {
    return IsControlled() && g_threads[t_number].lookedAt == object && g_threads[t_number].lookedInTurn == g_turn;
}

void Yield(const void* where) {
    if (!IsControlled()) {
        return;
    }
    Thread& self = g_threads[t_number];
    ++self.events;
    ++self.yields;
    if (self.yields <= 2) {
        Take(Decision::Yield, "yield", nullptr, where);
    } else if (self.yields >= kYieldsBeforeOthersMust) {
        self.yields = 0;
        Take(Decision::StepBack, "yield", nullptr, where);
    }
}

bool Block(const Wait& wait, const void* where) {
    Thread& self = g_threads[t_number];
    self.lookedAt = nullptr;
    self.yields = 0;
    ++self.events;
    CountPoint();
    Trace(wait.what, wait.object, where);
    self.wait = &wait;
    GoOn(CanGoOn(self) ? Decision::GoOn : Decision::Block);
    if (wait.deadline != kNever) {
        NoteUse(&g_now, std::exchange(g_letsTimePass, false));
    }
    self.wait = nullptr;
    const bool isOver = wait.isOver(wait.object);
    Trace(isOver ? "goes on" : "goes on: time-out", wait.object, where);
    return isOver;
}

std::size_t ChooseAmong(const int* threads, std::size_t count) {
    if (!IsControlled() || count < 2) {
        return 0;
    }
    ++g_threads[t_number].events;
    std::array<Candidate, 64> candidates;
    for (std::size_t i = 0; i < count; ++i) {
        candidates[i] = {threads[i], i == 0 ? 0 : 1};
    }
    g_isDeciding = true;
    const std::size_t chosen = g_strategy->Choose(candidates.data(), count, Decision::Wake);
    g_isDeciding = false;
    return chosen;
}

void BeginAtomic() noexcept {
    if (IsControlled()) {
        ++g_threads[t_number].atomicDepth;
    }
}

void EndAtomic() noexcept {
    if (IsControlled()) {
        --g_threads[t_number].atomicDepth;
    }
}

void SkipNextPoint() noexcept {
    if (IsControlled()) {
        g_threads[t_number].skipsNext = true;
    }
}

int AddThread() {
    if (g_count == kMostThreads) {
        Fail("more than %d threads", kMostThreads);
    }
    g_threads[g_count] = Thread();
    BeginOrderOf(g_count, t_number);
    NoteUse(&g_count, true);
    ++g_facts.threads;
    return g_count++;
}

void EnterThread(int number) {
    t_number = number;
    g_threads[number].baton.Await();
    Trace("begins", nullptr, nullptr);
}

void LeaveThread() {
    Trace("ends", nullptr, nullptr);
    ++g_threads[t_number].events;
    NoteUse(&g_threads[t_number], true);
    g_threads[t_number].hasLeft = true;
    const int next = Choose(Decision::Block);
    t_number = -1;
    PassTurnTo(next);
}

bool HasLeft(int number) noexcept {
    return g_threads[number].hasLeft;
}

void SeeEndOf(int number) noexcept {
    NoteUse(&g_threads[number], false);
}

Facts RunSchedule(void (*body)(), const Terms& terms, Strategy& strategy) {
    g_sharedObjects.BeginSchedule();
    g_threads[0] = Thread();
    g_count = 1;
    g_current = 0;
    g_now = 0;
    g_terms = terms;
    g_strategy = &strategy;
    g_facts = Facts{.threads = 1};
    t_number = 0;
    BeginMemory();
    BeginUses();
    ForgetThreads();
    g_isRunning = true;
    body();
    const auto allHaveLeft = +[](const void*) {
        for (int i = 1; i < g_count; ++i) {
            if (!g_threads[i].hasLeft) {
                return false;
            }
        }
        return true;
    };
    for (int i = 1; i < g_count; ++i) {
        SeeEndOf(i);
    }
    if (!allHaveLeft(nullptr)) {
        Block({"waits for the end of all threads", allHaveLeft, nullptr}, __builtin_return_address(0));
    }
    g_isRunning = false;
    EndMemory();
    g_facts.sharesMore |= HasMissedUses();
    return g_facts;
}

void LeaveControl() noexcept {
    g_isRunning = false;
}

void TakeAllAsShared() noexcept {
    g_areAllShared = true;
}

}  // namespace Schedules
