// What is around the call: the current future and the threading policy.
#include "concurrency/tasks/task_wrapper.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "tests/support/arrivals.h"
#include "tests/tasks/bound_wrapper.h"
#include "tests/tasks/future_fixture.h"

namespace Zarvo::Test {

struct Noted;

}  // namespace Zarvo::Test

namespace Orvane::Internal {

// Notes which future is the current one when the run starts and when it tells how it has ended.
template <>
class FutureImpl<Zarvo::Test::Noted> : public FutureState {
  public:
    bool Start() override {
        currentAtStart = GetFutureObject();
        return FutureState::Start();
    }
    void SetValue() {
        currentAtEnd = GetFutureObject();
        Complete();
    }
    void SetException(const CloneableException& exception) override {
        currentAtEnd = GetFutureObject();
        FutureState::SetException(exception);
    }
    void ConfirmCancel() override {
        currentAtEnd = GetFutureObject();
        FutureState::ConfirmCancel();
    }

    std::weak_ptr<FutureState> currentAtStart;
    std::weak_ptr<FutureState> currentAtEnd;
};

}  // namespace Orvane::Internal

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskWrapper, MakesItsFutureTheCurrentOneDuringTheCall) {
    std::shared_ptr<FutureState> during;
    std::shared_ptr<CancellationObject> run;
    FuturePointer future;
    Bound bound([&] {
        during = GetFutureObject();
        run = GetCancellationObject();
        EXPECT_EQ(run, future->GetCancellationObject());
    });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(during, future);
    EXPECT_NE(run, nullptr);
    EXPECT_EQ(GetFutureObject(), nullptr);
}

TEST(TaskWrapper, NestedRunsRestoreTheOuterFuture) {
    FuturePointer outerFuture;
    std::shared_ptr<FutureState> beforeInner;
    std::shared_ptr<FutureState> inInner;
    std::shared_ptr<FutureState> afterInner;
    Bound inner([&] { inInner = GetFutureObject(); });
    Bound outer([&] {
        beforeInner = GetFutureObject();
        inner.Run();
        afterInner = GetFutureObject();
    });
    outer.Run();

    EXPECT_EQ(beforeInner, outer.future);
    EXPECT_EQ(inInner, inner.future);
    EXPECT_EQ(afterInner, outer.future);
    EXPECT_EQ(GetFutureObject(), nullptr);
}

TEST(TaskWrapper, EveryKindOfEndRestoresTheOuterFuture) {
    const Callable ends[]{
        [] { throw CancelRequestedException(); },
        [] { throw Unexpected(L"framework error"); },
        [] { throw Failure(1); },
        [] { throw std::runtime_error("anything else"); },
    };
    for (const Callable& end : ends) {
        std::shared_ptr<FutureState> afterInner;
        Bound inner(end);
        Bound outer([&] {
            try {
                inner.Run();
            } catch (const std::runtime_error&) {
            }
            afterInner = GetFutureObject();
        });
        outer.Run();

        EXPECT_EQ(afterInner, outer.future);
    }
}

TEST(TaskWrapper, RefusedRunDoesNotTouchTheOuterFuture) {
    std::shared_ptr<FutureState> afterInner;
    Bound inner([] {});
    inner.future->RequestCancel();
    Bound outer([&] {
        inner.Run();
        afterInner = GetFutureObject();
    });
    outer.Run();

    EXPECT_EQ(afterInner, outer.future);
}

// The future is still the current one while the bound arguments die and when the waiters are woken.
TEST(TaskWrapper, PutsTheOuterFutureBackAfterTheCompletion) {
    struct Argument {
        explicit Argument(std::shared_ptr<FutureState>& seen) : future(&seen) {}
        ~Argument() { *future = GetFutureObject(); }
        std::shared_ptr<FutureState>* future;
    };
    std::shared_ptr<FutureState> atDestruction;
    auto argument = std::make_shared<Argument>(atDestruction);
    const auto future = std::make_shared<FutureImpl<Noted>>();
    TaskWrapper<Noted, Callable> wrapper([argument] {}, future);
    argument.reset();
    wrapper();

    EXPECT_EQ(atDestruction, future);
    EXPECT_EQ(future->currentAtEnd.lock(), future);
    EXPECT_EQ(GetFutureObject(), nullptr);
}

TEST(TaskWrapper, MakesItsFutureTheCurrentOneAfterTheStartAndPutsTheOuterOneBackBeforeAFailureIsStored) {
    const Callable ends[]{
        [] { throw CancelRequestedException(); },
        [] { throw Unexpected(L"framework error"); },
        [] { throw Failure(1); },
    };
    for (const Callable& end : ends) {
        const auto future = std::make_shared<FutureImpl<Noted>>();
        TaskWrapper<Noted, Callable> inner(end, future);
        Bound outer([&] { inner(); });
        outer.Run();

        EXPECT_EQ(future->currentAtStart.lock(), outer.future);
        EXPECT_EQ(future->currentAtEnd.lock(), outer.future);
    }
}

Arrivals* g_steps = nullptr;
const Future* g_observed = nullptr;

// A threading policy that notes when it is applied.
struct NotingPolicy {
    static inline bool g_enters = true;

    static bool Enter() noexcept {
        Note("enter");
        return g_enters;
    }
    static void Leave() noexcept { Note("leave"); }

    static void Note(const char* step) {
        const char* const current = GetFutureObject() ? ", current" : "";
        std::ostringstream text;
        text << step << ", " << StateOf(*g_observed) << current;
        g_steps->Add(text.str());
    }
};

class TaskWrapperPolicyTest : public testing::Test {
  protected:
    using NotingWrapper = TaskWrapper<void, Callable, NotingPolicy, LoggingPolicyNull>;

    void SetUp() override {
        g_steps = &m_steps;
        g_observed = m_future.get();
        NotingPolicy::g_enters = true;
    }

    void Run(const Callable& callable) {
        NotingWrapper wrapper(callable, m_future);
        try {
            wrapper();
        } catch (const std::runtime_error&) {
            m_steps.Add("left");
        }
    }

    Arrivals m_steps;
    FuturePointer m_future{new Future()};
};

TEST_F(TaskWrapperPolicyTest, IsAppliedBeforeTheStartAndEndedLast) {
    Run([&] { m_steps.Add("call"); });

    EXPECT_EQ(m_steps.List(), Names({"enter, NotStarted", "call", "leave, Normal"}));
}

TEST_F(TaskWrapperPolicyTest, IsEndedForARunThatIsRefused) {
    m_future->RequestCancel();
    Run([&] { m_steps.Add("call"); });

    EXPECT_EQ(m_steps.List(), Names({"enter, Cancelled", "leave, Cancelled"}));
}

TEST_F(TaskWrapperPolicyTest, IsEndedWhenTheOutcomeIsKnown) {
    Run([] { throw Failure(1); });

    EXPECT_EQ(m_steps.List(), Names({"enter, NotStarted", "leave, Error"}));
}

TEST_F(TaskWrapperPolicyTest, IsEndedWhenAnExceptionLeaves) {
    Run([] { throw std::runtime_error("anything else"); });

    EXPECT_EQ(m_steps.List(), Names({"enter, NotStarted", "leave, Busy", "left"}));
}

TEST_F(TaskWrapperPolicyTest, IsNotEndedWhenItCouldNotBeApplied) {
    NotingPolicy::g_enters = false;
    Run([&] { m_steps.Add("call"); });

    EXPECT_EQ(m_steps.List(), Names({"enter, NotStarted", "call"}));
    EXPECT_EQ(StateOf(*m_future), State::Normal);
}

}  // namespace
