// Futures in every state, and exceptions for them to keep.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/task_wrapper.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"

namespace Zarvo::Test {

using Future = Orvane::Internal::FutureImpl<void>;
using FuturePointer = std::shared_ptr<Future>;

enum class State { NotStarted, Busy, Normal, Cancelling, Cancelled, Error };

inline constexpr std::array kAllStates{State::NotStarted, State::Busy,      State::Normal,
                                       State::Cancelling, State::Cancelled, State::Error};

inline std::ostream& operator<<(std::ostream& stream, State state) {
    constexpr const char* kNames[] = {"NotStarted", "Busy", "Normal", "Cancelling", "Cancelled", "Error"};
    return stream << kNames[static_cast<std::size_t>(state)];
}

inline bool IsUnderWay(State state) {
    return state == State::Busy || state == State::Cancelling;
}

inline bool IsFinal(State state) {
    return state == State::Normal || state == State::Cancelled || state == State::Error;
}

// What the questions that a future answers make of its state.
inline State StateOf(const Orvane::Internal::IFutureState& future) {
    if (future.IsBusy()) {
        return State::Busy;
    }
    if (future.IsNormal()) {
        return State::Normal;
    }
    if (future.IsCancelling()) {
        return State::Cancelling;
    }
    if (future.IsCancelled()) {
        return State::Cancelled;
    }
    return future.IsReady() ? State::Error : State::NotStarted;
}

// A task's own exception.
class Failure : public std::exception, public virtual Orvane::CloneableException {
  public:
    explicit Failure(int number) : m_number(number) {}

    int Number() const { return m_number; }
    const char* what() const noexcept override { return "Failure"; }

    std::shared_ptr<Orvane::CloneableException> Clone() const override { return std::make_shared<Failure>(*this); }
    void Rethrow() const override { throw Failure(*this); }

  private:
    int m_number;
};

// One that does not let itself be cloned.
template <typename Refusal>
class Uncloneable : public Failure {
  public:
    explicit Uncloneable(const Refusal& refusal) : Failure(0), m_refusal(refusal) {}

    std::shared_ptr<Orvane::CloneableException> Clone() const override { throw m_refusal; }

  private:
    Refusal m_refusal;
};

// The future of a run that listens for its own cancellation: it knows how often its thread has asked. A wait asks while it
// holds the awaited future's mutex. Once it has asked and that mutex is free again, the thread sleeps.
class ListeningFuture : public Future {
  public:
    std::shared_ptr<Orvane::Internal::CancellationObject> GetCancellationObject() override {
        ++m_asked;
        return Future::GetCancellationObject();
    }

    bool HasAsked() const { return m_asked > 0; }

  private:
    std::atomic<int> m_asked = 0;
};

// A run of `wait` on a thread of its own. Once constructed, it sleeps in its wait for `awaited`, which must be busy.
class SleepingWaiter {
  public:
    SleepingWaiter(std::function<void()> wait, Future& awaited)
        : m_thread([future = m_future, wait = std::move(wait)] {
              Orvane::Internal::TaskWrapper<void, std::function<void()>> wrapper(wait, future);
              wrapper();
          }) {
        if (!Eventually([&] { return m_future->HasAsked(); }) || awaited.IsReady()) {
            throw std::runtime_error("SleepingWaiter: it does not wait");
        }
    }

    void Cancel() { m_future->RequestCancel(); }
    bool HasEnded() const { return m_thread.HasEnded(); }

    bool EndedCancelled() {
        m_thread.Join();
        return m_future->IsCancelled();
    }

  private:
    std::shared_ptr<ListeningFuture> m_future = std::make_shared<ListeningFuture>();
    PlainThread m_thread;
};

enum class RunsOn { AnotherThread, ThisThread };

inline void StartRun(Future& future, RunsOn thread) {
    if (thread == RunsOn::ThisThread) {
        future.Start();
    } else {
        PlainThread([&] { future.Start(); }).Join();
    }
}

inline void MakeCancelling(Future& future) {
    try {
        future.RequestCancel();
    } catch (const Orvane::CancelRequestedException&) {
        // The run is on this thread.
    }
}

// A future in the given state. If it ever was busy, its run is on `thread`.
inline FuturePointer FutureIn(State state, RunsOn thread = RunsOn::AnotherThread) {
    FuturePointer future(new Future());
    if (state == State::NotStarted) {
        return future;
    }
    if (state == State::Cancelled) {
        future->RequestCancel();
        return future;
    }
    StartRun(*future, thread);
    if (state == State::Normal) {
        future->SetValue();
    } else if (state == State::Error) {
        future->SetException(Failure(1));
    } else if (state == State::Cancelling) {
        MakeCancelling(*future);
    }
    return future;
}

// The same, with a task attached: waits on it are real waits.
inline FuturePointer AttachedFutureIn(State state, RunsOn thread = RunsOn::AnotherThread) {
    FuturePointer future = FutureIn(state, thread);
    future->MarkAsAttachedToTask();
    return future;
}

// Brings a future that is not final into the given final state.
inline void End(Future& future, State final) {
    if (StateOf(future) == State::NotStarted && final != State::Cancelled) {
        StartRun(future, RunsOn::AnotherThread);
    }
    if (final == State::Normal) {
        future.SetValue();
    } else if (final == State::Error) {
        future.SetException(Failure(2));
    } else {
        future.RequestCancel();
        future.ConfirmCancel();
    }
}

// Applies `operation` to a future in every state and compares the states afterwards, in the order of kAllStates.
template <typename Operation>
void ExpectStatesAfter(Operation operation, const std::vector<State>& expected, RunsOn thread = RunsOn::AnotherThread) {
    for (std::size_t index = 0; index < kAllStates.size(); ++index) {
        const FuturePointer future = FutureIn(kAllStates[index], thread);
        operation(*future);
        EXPECT_EQ(StateOf(*future), expected[index]) << "from " << kAllStates[index];
    }
}

// Whether the thread does not end within a moment.
template <typename Thread>
bool StillWaits(const Thread& thread) {
    return !Eventually([&] { return thread.HasEnded(); }, std::chrono::milliseconds(50));
}

}  // namespace Zarvo::Test
