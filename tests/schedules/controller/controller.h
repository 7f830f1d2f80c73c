// Runs the threads of a scenario one at a time and decides at each scheduling point which one goes on. Time is virtual: it moves
// when no thread can run, to the next deadline.
//
// The library and the stand-in for windows.h do not know it: they call POSIX threads (posix.cpp) and atomics
// (instrumentation.cpp), whose definitions of this folder come first.
//
// Threads: the controlled ones. Only one of them runs, so nothing here needs a lock.
// Errors: a thread that can never go on, and every other finding, ends the process: see Fail().
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tests/schedules/controller/footprint.h"

namespace Schedules {

inline constexpr std::int64_t kNever = INT64_MAX;

// What a thread waits for.
struct Wait {
    const char* what;
    bool (*isOver)(const void* object);
    const void* object;
    std::int64_t deadline = kNever;  // nanoseconds of Now()
};

// Whether a schedule is under way and the calling thread belongs to it.
bool IsControlled() noexcept;

// Before something that another thread may see, or be made to see: another thread may go on first. `where` is the return address
// of the call.
void Point(const char* what, const void* object, const void* where);

// For an operation that cannot be a point, but tells that more than one thread uses the object.
void Touch(const void* object) noexcept;

// The thread has nothing to do just now: others may go on at no cost, and must if it comes again and again.
void Yield(const void* where);

// A look at `object` that saw what the look before saw is no point, and begins to be a Yield().
void Look(const char* what, const void* object, std::uint64_t value, const void* where);

// Whether the thread's latest point was a look at the object, and no other thread has gone on since.
bool HasJustLookedAt(const void* object) noexcept;

// Returns whether the wait is over; false if its deadline came first.
bool Block(const Wait& wait, const void* where);

// Which of these threads is meant; all but the first cost a preemption.
std::size_t ChooseAmong(const int* threads, std::size_t count);

// Parts of the calling thread in which no other goes on.
void BeginAtomic() noexcept;
void EndAtomic() noexcept;
void SkipNextPoint() noexcept;

// Nanoseconds since the schedule began. A thread that asks orders itself with those that let time pass.
std::int64_t Now() noexcept;

// For a clock: lets a thread that looks at it again and again see time pass.
std::int64_t NowAfterReading() noexcept;

// The calling thread's number; 0 is the scenario's own.
int ThreadNumber() noexcept;

// The thread whose point is decided, and which of its events that is.
int DecidingThread() noexcept;
std::uint32_t EventNumber() noexcept;

// A new thread's number. It begins when it is chosen.
int AddThread();
void EnterThread(int number);  // on the new one: returns when it is chosen
void LeaveThread();  // on the one that ends: its last call
bool HasLeft(int number) noexcept;
void SeeEndOf(int number) noexcept;  // the calling thread goes on because that one has left

// Ends the schedule as failed, and the process.
[[noreturn]] void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One of the threads that may go on.
struct Candidate {
    int thread;
    int cost;  // 1: it interrupts one that could go on, or comes at its deadline although others can run
    bool isEarly = false;  // the latter
};

enum class Decision {
    GoOn,  // the thread could; the first candidate is the thread itself
    Yield,  // it could, and is the first candidate, but has nothing to do just now
    StepBack,  // others must
    Block,  // it waits, or has ended
    Wake,  // it goes on; the candidates are those that it may wake
};

// Decides. A point with one candidate is no decision.
class Strategy {
  public:
    virtual ~Strategy() = default;
    virtual std::size_t Choose(const Candidate* candidates, std::size_t count, Decision decision) = 0;

    // The thread that runs has come to a point, or to its end. Since the one before it has used `step`.
    virtual void EndStep(const Footprint& step) = 0;

    // It goes on: what was chosen, or the only one that could.
    virtual void BeginStep(int thread) = 0;
};

// How a scenario is run.
struct Terms {
    // How far ahead a deadline may be that comes although other threads can run. 0: time moves only when none can.
    std::int64_t patience = 0;

    // Whether it costs, too, to go on with another thread than the next one where one blocks. For many threads.
    bool delays = false;
};

struct Facts {
    std::uint32_t points = 0;
    std::uint32_t threads = 0;
    bool sharesMore = false;  // than was known: points of the schedule were not seen as such, or uses not noted
};

// Runs `body` as thread 0, and returns when all threads have ended.
Facts RunSchedule(void (*body)(), const Terms& terms, Strategy& strategy);

// Nothing is controlled any more: the process is about to end.
void LeaveControl() noexcept;

// From now on every event is a point.
void TakeAllAsShared() noexcept;

}  // namespace Schedules
