// Every row of the state table, and what each state answers.
#include "concurrency/tasks/future_state.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "tests/support/allocations.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

static_assert(!std::is_copy_constructible_v<FutureState> && !std::is_copy_assignable_v<FutureState>);
static_assert(std::has_virtual_destructor_v<FutureState>);

TEST(FutureState, AnswersAsItsStateSays) {
    struct Answers {
        bool busy, ready, normal, cancelling, cancelled;
    };
    const std::vector<Answers> expected{
        {false, false, false, false, false},  // NotStarted
        {true, false, false, false, false},   // Busy
        {false, true, true, false, false},    // Normal
        {false, true, false, true, false},    // Cancelling
        {false, true, false, false, true},    // Cancelled
        {false, true, false, false, false},   // Error
    };
    for (std::size_t index = 0; index < kAllStates.size(); ++index) {
        const FuturePointer future = FutureIn(kAllStates[index]);

        EXPECT_EQ(future->IsBusy(), expected[index].busy) << kAllStates[index];
        EXPECT_EQ(future->IsReady(), expected[index].ready) << kAllStates[index];
        EXPECT_EQ(future->IsNormal(), expected[index].normal) << kAllStates[index];
        EXPECT_EQ(future->IsCancelling(), expected[index].cancelling) << kAllStates[index];
        EXPECT_EQ(future->IsCancelled(), expected[index].cancelled) << kAllStates[index];
    }
}

TEST(FutureState, StartChangesNoOtherState) {
    ExpectStatesAfter([](Future& future) { future.Start(); },
                      {State::Busy, State::Busy, State::Normal, State::Cancelling, State::Cancelled, State::Error});
}

TEST(FutureState, StartRefusesOnlyACancelledFuture) {
    for (const State state : kAllStates) {
        EXPECT_EQ(FutureIn(state)->Start(), state != State::Cancelled) << state;
    }
}

TEST(FutureState, StartRecordsTheThreadThatWillRunTheTask) {
    const FuturePointer here = FutureIn(State::Busy, RunsOn::ThisThread);
    EXPECT_EQ(here->GetCancellationObject()->GetThreadId(), ::GetCurrentThreadId());

    const FuturePointer elsewhere = FutureIn(State::NotStarted);
    DWORD id = 0;
    PlainThread([&] {
        elsewhere->Start();
        id = ::GetCurrentThreadId();
    }).Join();
    EXPECT_EQ(elsewhere->GetCancellationObject()->GetThreadId(), id);
}

TEST(FutureState, SecondStartKeepsTheCancellationObject) {
    const FuturePointer future = FutureIn(State::Busy);
    const auto first = future->GetCancellationObject();

    EXPECT_TRUE(future->Start());
    EXPECT_EQ(future->GetCancellationObject(), first);
}

TEST(FutureState, StartWithoutMemoryLeavesTheFutureNotStarted) {
    const FuturePointer future = FutureIn(State::NotStarted);
    {
        const NoMemory none;
        EXPECT_THROW(future->Start(), std::bad_alloc);
    }
    EXPECT_EQ(StateOf(*future), State::NotStarted);
    EXPECT_EQ(future->GetCancellationObject(), nullptr);
    EXPECT_TRUE(future->Start());
}

TEST(FutureState, HasACancellationObjectExactlyWhileItsRunIsUnderWay) {
    for (const State state : kAllStates) {
        EXPECT_EQ(FutureIn(state)->GetCancellationObject() != nullptr, IsUnderWay(state)) << state;
    }
}

TEST(FutureState, EveryEndReleasesTheCancellationObject) {
    for (const State start : {State::Busy, State::Cancelling}) {
        for (const State end : {State::Normal, State::Cancelled, State::Error}) {
            const FuturePointer future = FutureIn(start);
            const std::weak_ptr<CancellationObject> run = future->GetCancellationObject();
            ASSERT_FALSE(run.expired());
            End(*future, end);

            EXPECT_EQ(StateOf(*future), end);
            EXPECT_TRUE(run.expired()) << start << " to " << end;
        }
    }
}

TEST(FutureState, SetValueEndsOnlyARunThatIsUnderWay) {
    ExpectStatesAfter([](Future& future) { future.SetValue(); },
                      {State::NotStarted, State::Normal, State::Normal, State::Normal, State::Cancelled, State::Error});
}

TEST(FutureState, SetExceptionEndsOnlyARunThatIsUnderWay) {
    ExpectStatesAfter([](Future& future) { future.SetException(Failure(7)); },
                      {State::NotStarted, State::Error, State::Normal, State::Error, State::Cancelled, State::Error});
}

TEST(FutureState, SetExceptionKeepsACopyOfTheMostDerivedObject) {
    const FuturePointer future = FutureIn(State::Busy);
    {
        const Failure failure(42);
        future->SetException(failure);
    }
    try {
        future->HandleErrors();
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Number(), 42);
    }
}

TEST(FutureState, SecondExceptionIsIgnored) {
    const FuturePointer future = FutureIn(State::Busy);
    future->SetException(Failure(1));
    future->SetException(Failure(2));

    try {
        future->HandleErrors();
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Number(), 1);
    }
}

TEST(FutureState, SetExceptionDoesNotCloneWhatItIgnores) {
    const Uncloneable refusing{std::runtime_error("asked to clone")};
    for (const State state : {State::NotStarted, State::Normal, State::Cancelled, State::Error}) {
        EXPECT_NO_THROW(FutureIn(state)->SetException(refusing)) << state;
    }
}

TEST(FutureState, CloneWithoutMemoryStillEndsTheRunWithAnError) {
    for (const State state : {State::Busy, State::Cancelling}) {
        const FuturePointer future = FutureIn(state);
        EXPECT_NO_THROW(future->SetException(Uncloneable(std::bad_alloc())));

        EXPECT_EQ(StateOf(*future), State::Error);
        EXPECT_EQ(future->GetCancellationObject(), nullptr);
    }
}

TEST(FutureState, ErrorWithoutACloneIsReportedAsLackOfMemory) {
    const FuturePointer future = FutureIn(State::Busy);
    future->SetException(Uncloneable(std::bad_alloc()));

    EXPECT_THROW(future->HandleErrors(), std::bad_alloc);
    EXPECT_THROW(future->HandleErrors(), std::bad_alloc);
}

TEST(FutureState, AnyOtherFailureToCloneIsPassedOnAndChangesNothing) {
    for (const State state : {State::Busy, State::Cancelling}) {
        const FuturePointer future = FutureIn(state);
        EXPECT_THROW(future->SetException(Uncloneable(std::runtime_error("no clone"))), std::runtime_error);

        EXPECT_EQ(StateOf(*future), state);
        EXPECT_NE(future->GetCancellationObject(), nullptr);
        // The lock is free again.
        PlainThread([&] { future->SetValue(); }).Join();
        EXPECT_EQ(StateOf(*future), State::Normal);
    }
}

TEST(FutureState, ConfirmationCountsOnlyAfterARequest) {
    ExpectStatesAfter(
        [](Future& future) { future.ConfirmCancel(); },
        {State::NotStarted, State::Busy, State::Normal, State::Cancelled, State::Cancelled, State::Error});
}

TEST(FutureState, NothingLeavesAFinalState) {
    for (const State final : {State::Normal, State::Cancelled, State::Error}) {
        const FuturePointer future = FutureIn(final);
        future->Start();
        future->SetValue();
        future->SetException(Failure(9));
        future->RequestCancel();
        future->ConfirmCancel();

        EXPECT_EQ(StateOf(*future), final);
        EXPECT_EQ(future->GetCancellationObject(), nullptr);
    }
}

TEST(FutureState, HandleErrorsReturnsWhenThereIsNothingToReport) {
    for (const State state : {State::NotStarted, State::Busy, State::Normal}) {
        EXPECT_NO_THROW(FutureIn(state)->HandleErrors()) << state;
    }
}

TEST(FutureState, HandleErrorsThrowsCancelledAlreadyWhileCancelling) {
    for (const State state : {State::Cancelling, State::Cancelled}) {
        EXPECT_THROW(FutureIn(state)->HandleErrors(), CancelledException) << state;
    }
}

TEST(FutureState, HandleErrorsThrowsACopyEveryTime) {
    const FuturePointer future = FutureIn(State::Error);
    const Failure* first = nullptr;
    try {
        future->HandleErrors();
    } catch (const Failure& failure) {
        first = &failure;
        EXPECT_EQ(failure.Number(), 1);
        try {
            future->HandleErrors();
        } catch (const Failure& second) {
            EXPECT_NE(&second, first);
        }
    }
    EXPECT_NE(first, nullptr);
}

TEST(FutureState, HandleErrorsReturnsWhenTheExceptionDoesNotThrowItself) {
    class Silent : public Failure {
      public:
        Silent() : Failure(0) {}
        std::shared_ptr<CloneableException> Clone() const override { return std::make_shared<Silent>(*this); }
        void Rethrow() const override {}
    };
    const FuturePointer future = FutureIn(State::Busy);
    future->SetException(Silent());

    EXPECT_NO_THROW(future->HandleErrors());
    EXPECT_EQ(StateOf(*future), State::Error);
}

TEST(FutureState, DestructorWaitsForNothingAndReleasesTheException) {
    struct Watched : Failure {
        explicit Watched(std::shared_ptr<int> token) : Failure(0), m_token(std::move(token)) {}
        std::shared_ptr<CloneableException> Clone() const override { return std::make_shared<Watched>(*this); }
        std::shared_ptr<int> m_token;
    };
    std::weak_ptr<int> watched;
    {
        const FuturePointer future = FutureIn(State::Busy);
        auto token = std::make_shared<int>(0);
        watched = token;
        future->SetException(Watched(std::move(token)));
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());

    FuturePointer busy = AttachedFutureIn(State::Busy);
    const std::weak_ptr<CancellationObject> run = busy->GetCancellationObject();
    busy.reset();
    EXPECT_TRUE(run.expired());
}

}  // namespace
