// The order of a task state's virtual functions is binary interface, see future_slots_test.cpp.
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/null_future_state.h"
#include "concurrency/tasks/null_task_wrapper.h"
#include "tests/support/arrivals.h"
#include "tests/support/recorded_reports.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// What a caller elsewhere believes a task state to be.
class TaskSlots {
  public:
    virtual void Slot0() = 0;
    virtual std::shared_ptr<ITaskState> Slot1() = 0;
    virtual std::shared_ptr<IFutureState> Slot2() = 0;
    virtual ~TaskSlots() = default;
};

TaskSlots& SlotsOf(ITaskState& state) {
    return reinterpret_cast<TaskSlots&>(state);
}

class NamedState : public ITaskState {
  public:
    explicit NamedState(Names& calls) : m_calls(&calls) {}
    ~NamedState() override { m_calls->push_back("destructor"); }

    void operator()() override { m_calls->push_back("operator()"); }
    std::shared_ptr<ITaskState> Recreate() override {
        m_calls->push_back("Recreate");
        return nullptr;
    }
    std::shared_ptr<IFutureState> GetFuture() override {
        m_calls->push_back("GetFuture");
        return nullptr;
    }

  private:
    Names* m_calls;
};

static_assert(std::is_abstract_v<ITaskState>);
static_assert(!std::is_destructible_v<ITaskState>, "the destructor is protected");
static_assert(sizeof(ITaskState) == sizeof(void*), "the interface has no data");

TEST(ITaskState, OperationsLieInTheirSlots) {
    Names calls;
    TaskSlots* const slots = &SlotsOf(*new NamedState(calls));
    slots->Slot0();
    EXPECT_EQ(slots->Slot1(), nullptr);
    EXPECT_EQ(slots->Slot2(), nullptr);
    delete slots;

    EXPECT_EQ(calls, Names({"operator()", "Recreate", "GetFuture", "destructor"}));
}

TEST(TaskWrapper, AnswersThroughTheSlotsOfItsInterface) {
    int runs = 0;
    FuturePointer future;
    Task task = MakeTask(L"", [&runs] { ++runs; }, future);
    TaskSlots& slots = SlotsOf(*task.GetWrapper());

    EXPECT_EQ(slots.Slot2(), future);
    const auto fresh = slots.Slot1();
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(SlotsOf(*fresh).Slot2(), future);
    slots.Slot0();
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(future->IsNormal());
}

TEST(NullTaskWrapper, DoesNothingAndHasNothing) {
    const RecordedReports reports;
    NullTaskWrapper wrapper;
    TaskSlots& slots = SlotsOf(wrapper);
    slots.Slot0();
    slots.Slot0();

    EXPECT_EQ(slots.Slot1(), nullptr);
    EXPECT_TRUE(reports.All().empty());
}

TEST(NullTaskWrapper, MakesANewNullFutureAtEveryCall) {
    NullTaskWrapper wrapper;
    const auto first = SlotsOf(wrapper).Slot2();
    const auto second = SlotsOf(wrapper).Slot2();

    EXPECT_NE(first, second);
    EXPECT_NE(std::dynamic_pointer_cast<NullFutureState>(first), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<NullFutureState>(second), nullptr);
    EXPECT_TRUE(first->IsCancelled());
    static_assert(sizeof(NullTaskWrapper) == sizeof(void*), "no data");
}

// A wrapper's fields, read where callers elsewhere expect them.
TEST(TaskWrapper, FutureLiesBeforeTheCallable) {
    FuturePointer future;
    const Task task = MakeTask(L"", [] {}, future);
    const std::shared_ptr<ITaskState> state = Task(task).GetWrapper();
    const auto* const fields = reinterpret_cast<const void* const*>(state.get());

    EXPECT_EQ(fields[1], future.get());  // behind the table of virtual functions
}

}  // namespace
