// A future does what the table above FutureState says, in every order of operations.
#include <gtest/gtest.h>

#include <chrono>
#include <optional>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/models/acting_thread.h"
#include "tests/models/sequences.h"
#include "tests/scheduler/moments.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;

// Of a future. The number's lowest bit says on which of two threads; all of it, which exception.
enum class FutureOp {
    Attach,
    Start,
    SetValue,
    SetException,
    Request,
    Confirm,
    Wait,
    WaitUntilThePast,
    HandleErrors,
    Get,
    Count
};

const char* NameOf(FutureOp op) {
    constexpr const char* kNames[] = {"Attach",  "Start", "SetValue",         "SetException", "Request",
                                      "Confirm", "Wait",  "WaitUntilThePast", "HandleErrors", "Get"};
    return kNames[static_cast<int>(op)];
}

struct FutureModel {
    State state = State::NotStarted;
    bool isAttached = false;
    int runsOn = 0;         // the thread, once it was started
    bool isRunAsked = false;  // whether the run's flag is set
    int exception = 0;

    // How a call ended.
    enum class Outcome { Returned, CancelRequested, Cancelled, Failure };
    Outcome Errors() const {
        if (state == State::Error) {
            return Outcome::Failure;
        }
        return state == State::Cancelled || state == State::Cancelling ? Outcome::Cancelled : Outcome::Returned;
    }

    bool WouldBlock() const { return isAttached && !IsFinal(state); }

    Outcome Request(int thread) {
        if (state == State::NotStarted) {
            state = State::Cancelled;
        } else if (IsUnderWay(state) && thread == runsOn) {
            state = State::Cancelling;
            return Outcome::CancelRequested;
        } else if (state == State::Busy) {
            state = State::Cancelling;
            isRunAsked = true;
        }
        return Outcome::Returned;
    }
};

template <typename Call>
FutureModel::Outcome OutcomeOf(Call call, int& failure) {
    using Outcome = FutureModel::Outcome;
    try {
        call();
        return Outcome::Returned;
    } catch (const CancelRequestedException&) {
        return Outcome::CancelRequested;
    } catch (const CancelledException&) {
        return Outcome::Cancelled;
    } catch (const Failure& error) {
        failure = error.Number();
        return Outcome::Failure;
    }
}

class FutureScene {
  public:
    explicit FutureScene(ActingThread& other) : m_other(other) {}

    void Do(FutureOp op, int number) {
        const int thread = number % 2;
        switch (op) {
            case FutureOp::Attach:
                m_future->MarkAsAttachedToTask();
                m_model.isAttached = true;
                break;
            case FutureOp::Start: Start(thread); break;
            case FutureOp::SetValue:
                m_future->SetValue();
                End(State::Normal);
                break;
            case FutureOp::SetException:
                m_future->SetException(Failure(number));
                if (End(State::Error)) {
                    m_model.exception = number;
                }
                break;
            case FutureOp::Request: {
                const auto expected = m_model.Request(thread);
                Expect(expected, thread, [this] { m_future->RequestCancel(); });
                break;
            }
            case FutureOp::Confirm:
                m_future->ConfirmCancel();
                if (m_model.state == State::Cancelling) {
                    End(State::Cancelled);
                }
                break;
            case FutureOp::Wait:
                if (!m_model.WouldBlock()) {
                    m_future->Wait();
                }
                break;
            case FutureOp::WaitUntilThePast:
                RC_ASSERT(m_future->TimedWait(Now() - std::chrono::hours(1)) ==
                          (m_model.isAttached && IsFinal(m_model.state)));
                break;
            case FutureOp::HandleErrors: Expect(m_model.Errors(), thread, [this] { m_future->HandleErrors(); }); break;
            default:
                if (!m_model.WouldBlock()) {
                    Expect(m_model.Errors(), thread, [this] { m_future->GetValue(); });
                }
                break;
        }
        Compare();
    }

  private:
    void On(int thread, const std::function<void()>& call) {
        if (thread == 0) {
            call();
        } else {
            m_other.Do(call);
        }
    }

    void Start(int thread) {
        bool mayRun = false;
        On(thread, [&] { mayRun = m_future->Start(); });
        RC_ASSERT(mayRun == (m_model.state != State::Cancelled));
        if (m_model.state == State::NotStarted) {
            m_model.state = State::Busy;
            m_model.runsOn = thread;
        }
    }

    bool End(State state) {
        if (!IsUnderWay(m_model.state)) {
            return false;
        }
        m_model.state = state;
        return true;
    }

    template <typename Call>
    void Expect(FutureModel::Outcome expected, int thread, Call call) {
        FutureModel::Outcome outcome{};
        int failure = m_model.exception;
        On(thread, [&] { outcome = OutcomeOf(call, failure); });
        RC_ASSERT(static_cast<int>(outcome) == static_cast<int>(expected));
        RC_ASSERT(failure == m_model.exception);
    }

    void Compare() const {
        const State state = m_model.state;
        RC_ASSERT(m_future->IsBusy() == (state == State::Busy));
        RC_ASSERT(m_future->IsReady() == (state == State::Cancelling || IsFinal(state)));
        RC_ASSERT(m_future->IsNormal() == (state == State::Normal));
        RC_ASSERT(m_future->IsCancelling() == (state == State::Cancelling));
        RC_ASSERT(m_future->IsCancelled() == (state == State::Cancelled));
        const auto run = m_future->GetCancellationObject();
        RC_ASSERT((run != nullptr) == IsUnderWay(state));
        RC_ASSERT((run == nullptr || run->IsRequested() == m_model.isRunAsked));
    }

    ActingThread& m_other;
    const FuturePointer m_future{new Future()};
    FutureModel m_model;
};

TEST(FutureModel, DoesWhatItsTableSays) {
    ActingThread other;
    CheckSequences<FutureOp>(4, [&](const Steps<FutureOp>& steps) {
        FutureScene scene(other);
        for (const auto& [op, number] : steps) {
            scene.Do(op, number);
        }
    });
}

}  // namespace
}  // namespace Zarvo::Test
