// The order of the virtual functions is binary interface: callers elsewhere were compiled against it. Here they are an
// interface of their own, declared without a look at the library's, and every call goes through its table.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/tasks/ifuture_state.h"
#include "concurrency/tasks/null_future_state.h"
#include "tests/support/arrivals.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// What a caller elsewhere believes a future to be.
class FutureSlots {
  public:
    virtual bool Slot0() = 0;
    virtual void Slot1(const CloneableException& exception) = 0;
    virtual bool Slot2() const = 0;
    virtual bool Slot3() const = 0;
    virtual bool Slot4() const = 0;
    virtual bool Slot5() const = 0;
    virtual bool Slot6() const = 0;
    virtual void Slot7() = 0;
    virtual bool Slot8(const TimePoint& deadline) = 0;
    virtual void Slot9() = 0;
    virtual void Slot10() = 0;
    virtual std::shared_ptr<CancellationObject> Slot11() = 0;
    virtual ~FutureSlots() = default;
};

FutureSlots& SlotsOf(IFutureState& future) {
    return reinterpret_cast<FutureSlots&>(future);
}

// Notes by name what is called.
class NamedFuture : public IFutureState {
  public:
    explicit NamedFuture(Names& calls) : m_calls(&calls) {}
    ~NamedFuture() override { m_calls->push_back("destructor"); }

    bool Start() override { return Note("Start"); }
    void SetException(const CloneableException&) override { Note("SetException"); }
    bool IsBusy() const override { return Note("IsBusy"); }
    bool IsReady() const override { return Note("IsReady"); }
    bool IsNormal() const override { return Note("IsNormal"); }
    bool IsCancelling() const override { return Note("IsCancelling"); }
    bool IsCancelled() const override { return Note("IsCancelled"); }
    void Wait() override { Note("Wait"); }
    bool TimedWait(const TimePoint&) override { return Note("TimedWait"); }
    void RequestCancel() override { Note("RequestCancel"); }
    void ConfirmCancel() override { Note("ConfirmCancel"); }
    std::shared_ptr<CancellationObject> GetCancellationObject() override {
        Note("GetCancellationObject");
        return nullptr;
    }

  private:
    bool Note(const char* name) const {
        m_calls->push_back(name);
        return true;
    }

    Names* m_calls;
};

TEST(IFutureState, OperationsLieInTheirSlots) {
    Names calls;
    FutureSlots* const slots = &SlotsOf(*new NamedFuture(calls));
    EXPECT_TRUE(slots->Slot0());
    slots->Slot1(Failure(0));
    EXPECT_TRUE(slots->Slot2());
    EXPECT_TRUE(slots->Slot3());
    EXPECT_TRUE(slots->Slot4());
    EXPECT_TRUE(slots->Slot5());
    EXPECT_TRUE(slots->Slot6());
    slots->Slot7();
    EXPECT_TRUE(slots->Slot8(TimePoint()));
    slots->Slot9();
    slots->Slot10();
    EXPECT_EQ(slots->Slot11(), nullptr);
    delete slots;

    EXPECT_EQ(calls,
              Names({"Start", "SetException", "IsBusy", "IsReady", "IsNormal", "IsCancelling", "IsCancelled", "Wait",
                     "TimedWait", "RequestCancel", "ConfirmCancel", "GetCancellationObject", "destructor"}));
}

static_assert(std::is_abstract_v<IFutureState>);
static_assert(!std::is_constructible_v<IFutureState>);
static_assert(!std::is_destructible_v<IFutureState>, "the destructor is protected");
static_assert(sizeof(IFutureState) == sizeof(void*), "the interface has no data");

TEST(FutureState, AnswersThroughTheSlotsOfItsInterface) {
    const FuturePointer future = AttachedFutureIn(State::NotStarted);
    FutureSlots& slots = SlotsOf(*future);
    EXPECT_FALSE(slots.Slot2() || slots.Slot3() || slots.Slot4() || slots.Slot5() || slots.Slot6());
    EXPECT_EQ(slots.Slot11(), nullptr);

    EXPECT_TRUE(slots.Slot0());
    EXPECT_TRUE(slots.Slot2());
    EXPECT_NE(slots.Slot11(), nullptr);
    EXPECT_FALSE(slots.Slot8(TimePoint::min()));

    EXPECT_THROW(slots.Slot9(), CancelRequestedException);
    EXPECT_TRUE(slots.Slot5());
    EXPECT_TRUE(slots.Slot3());

    slots.Slot10();
    EXPECT_TRUE(slots.Slot6());
    EXPECT_FALSE(slots.Slot0());
    slots.Slot7();
    EXPECT_TRUE(slots.Slot8(TimePoint::min()));
}

TEST(FutureState, TakesItsExceptionThroughTheSlotsOfItsInterface) {
    const FuturePointer future = FutureIn(State::Busy);
    SlotsOf(*future).Slot1(Failure(5));

    EXPECT_THROW(future->HandleErrors(), Failure);
    EXPECT_FALSE(SlotsOf(*future).Slot4());
    EXPECT_TRUE(SlotsOf(*FutureIn(State::Normal)).Slot4());
}

TEST(FutureState, IsDestroyedThroughTheLastSlot) {
    Future* const future = new Future();
    future->Start();
    const std::weak_ptr<CancellationObject> run = future->GetCancellationObject();
    delete &SlotsOf(*future);

    EXPECT_TRUE(run.expired());
}

TEST(NullFutureState, AnswersSlotBySlot) {
    NullFutureState future;
    FutureSlots& slots = SlotsOf(future);

    EXPECT_FALSE(slots.Slot0());
    slots.Slot1(Failure(1));
    EXPECT_FALSE(slots.Slot2());
    EXPECT_FALSE(slots.Slot3());
    EXPECT_FALSE(slots.Slot4());
    EXPECT_FALSE(slots.Slot5());
    EXPECT_TRUE(slots.Slot6());
    slots.Slot7();
    EXPECT_TRUE(slots.Slot8(TimePoint::min()));
    EXPECT_TRUE(slots.Slot8(TimePoint::max()));
    slots.Slot9();
    slots.Slot10();
    EXPECT_EQ(slots.Slot11(), nullptr);
}

TEST(NullFutureState, IsCancelledAndNotReadyAtTheSameTimeWhateverIsDoneToIt) {
    NullFutureState future;
    future.Start();
    future.SetException(Failure(1));
    future.RequestCancel();
    future.ConfirmCancel();

    EXPECT_TRUE(future.IsCancelled());
    EXPECT_FALSE(future.IsReady());
    EXPECT_FALSE(future.IsBusy());
    EXPECT_FALSE(future.IsNormal());
    EXPECT_FALSE(future.IsCancelling());
}

TEST(NullFutureState, IsNoCancellationPoint) {
    const FuturePointer cancelled = FutureIn(State::Cancelling, RunsOn::ThisThread);
    cancelled->GetCancellationObject()->RequestCancel();
    ResetFutureObject(cancelled);
    ASSERT_TRUE(IsCancellationRequested());
    NullFutureState future;

    EXPECT_NO_THROW(future.Wait());
    EXPECT_TRUE(future.TimedWait(TimePoint::max()));
    ResetFutureObject({});
}

TEST(NullFutureState, CanBeCopiedAndMoved) {
    NullFutureState original;
    NullFutureState copy(original);
    NullFutureState moved(std::move(original));
    copy = moved;
    moved = std::move(copy);

    EXPECT_TRUE(moved.IsCancelled());
    static_assert(sizeof(NullFutureState) == sizeof(void*), "no fields");
    static_assert(std::is_nothrow_move_constructible_v<NullFutureState>);
}

}  // namespace
