// How a callable's end becomes its future's state, and what is around the call.
#include "concurrency/tasks/task_wrapper.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "tests/support/arrivals.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Callable = std::function<void()>;
using Wrapper = TaskWrapper<void, Callable>;

// A wrapper with its future.
struct Bound {
    explicit Bound(const Callable& callable) : wrapper(std::make_shared<Wrapper>(callable, future)) {}

    void Run() { (*wrapper)(); }

    FuturePointer future{new Future()};
    std::shared_ptr<Wrapper> wrapper;
};

TEST(TaskWrapper, AttachesItsFutureAndGivesItOut) {
    const Bound bound([] {});

    EXPECT_EQ(bound.wrapper->GetFuture(), bound.future);
    EXPECT_EQ(StateOf(*bound.future), State::NotStarted);
    bound.future->RequestCancel();
    EXPECT_TRUE(bound.future->TimedWait(TimePoint::min())) << "a wait is not a real one";
}

TEST(TaskWrapper, CopiesTheCallable) {
    struct Counting {
        int* calls;
        void operator()() { ++*calls; }
    };
    int calls = 0;
    FuturePointer future(new Future());
    std::shared_ptr<ITaskState> wrapper;
    {
        const Counting callable{&calls};
        wrapper = std::make_shared<TaskWrapper<void, Counting>>(callable, future);
    }
    (*wrapper)();

    EXPECT_EQ(calls, 1);
}

TEST(TaskWrapper, BindsAMemberFunctionWithItsObjectAndArgument) {
    struct Object {
        void Add(unsigned long long number) { sum += number; }
        unsigned long long sum = 0;
    };
    Object object;
    const auto callable = std::bind(&Object::Add, &object, 7ULL);
    FuturePointer future(new Future());
    TaskWrapper<void, std::decay_t<decltype(callable)>> wrapper(callable, future);
    wrapper();

    EXPECT_EQ(object.sum, 7U);
    EXPECT_TRUE(future->IsNormal());
}

TEST(TaskWrapper, IsBusyDuringTheCallAndNormalAfterIt) {
    State during = State::NotStarted;
    FuturePointer future;
    Bound bound([&] { during = StateOf(*future); });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(during, State::Busy);
    EXPECT_EQ(StateOf(*future), State::Normal);
}

TEST(TaskWrapper, FutureCancelledBeforeTheRunKeepsItFromBeingCalled) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    bound.future->RequestCancel();
    bound.Run();

    EXPECT_EQ(calls, 0);
    EXPECT_EQ(StateOf(*bound.future), State::Cancelled);
}

TEST(TaskWrapper, CallableThatLetsItsCancellationGoEndsCancelled) {
    FuturePointer future;
    Bound bound([&] {
        GetCancellationObject()->RequestCancel();
        MakeCancelling(*future);
        CancellationPoint();
    });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Cancelled);
    EXPECT_THROW(future->GetValue(), CancelledException);
}

TEST(TaskWrapper, CancelRequestedExceptionWithoutARequestLeavesTheFutureBusy) {
    Bound bound([] { throw CancelRequestedException(); });
    bound.Run();

    EXPECT_EQ(StateOf(*bound.future), State::Busy);
}

TEST(TaskWrapper, CallableThatSwallowsItsCancellationEndsNormal) {
    FuturePointer future;
    Bound bound([&] { MakeCancelling(*future); });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Normal);
    EXPECT_NO_THROW(future->GetValue());
}

TEST(TaskWrapper, CallableThatFailsWhileCancellingEndsWithItsError) {
    FuturePointer future;
    Bound bound([&] {
        MakeCancelling(*future);
        throw Failure(8);
    });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Error);
    EXPECT_THROW(future->GetValue(), Failure);
}

TEST(TaskWrapper, FrameworkErrorIsKeptAndThrownAgainAsItsKind) {
    Bound bound([] { throw AccessDenied(ErrorStorage(ExceptionCOM(E_ACCESSDENIED, GUID{}, L"file %d", 3))); });
    bound.Run();
    EXPECT_EQ(StateOf(*bound.future), State::Error);
    try {
        bound.future->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const AccessDenied& error) {
        EXPECT_STREQ(error.message, L"file 3");
        EXPECT_EQ(error.com.hresult, static_cast<std::int32_t>(E_ACCESSDENIED));
    }
}

TEST(TaskWrapper, FrameworkErrorThatIsCloneableTooGoesByItsRecord) {
    // As the wrapper's own clone of a framework error is.
    class Both : public CloneableExceptionBase {
      public:
        Both() : CloneableExceptionBase(Unexpected(L"by its record")) {}
        std::shared_ptr<CloneableException> Clone() const override { throw std::logic_error("cloned as itself"); }
    };
    Bound bound([] { throw Both(); });
    EXPECT_NO_THROW(bound.Run());

    EXPECT_THROW(bound.future->GetValue(), Unexpected);
}

TEST(TaskWrapper, CancellationComesBeforeEveryOtherKind) {
    class Both : public CancelRequestedException, public virtual CloneableException {
      public:
        std::shared_ptr<CloneableException> Clone() const override { throw std::logic_error("cloned"); }
        void Rethrow() const override {}
    };
    FuturePointer future;
    Bound bound([&] {
        MakeCancelling(*future);
        throw Both();
    });
    future = bound.future;
    EXPECT_NO_THROW(bound.Run());

    EXPECT_EQ(StateOf(*future), State::Cancelled);
}

TEST(TaskWrapper, CloneableExceptionIsKeptAsItsMostDerivedClass) {
    Bound bound([] { throw Failure(4); });
    bound.Run();
    EXPECT_EQ(StateOf(*bound.future), State::Error);
    try {
        bound.future->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Number(), 4);
    }
}

TEST(TaskWrapper, CancelledExceptionOfAnotherTaskIsAnErrorOfThisOne) {
    Bound bound([] { FutureIn(State::Cancelled)->GetValue(); });
    bound.Run();

    EXPECT_EQ(StateOf(*bound.future), State::Error);
    EXPECT_THROW(bound.future->GetValue(), CancelledException);
}

template <typename Exception>
void ExpectLeaves(const Exception& exception) {
    Bound bound([&] { throw exception; });
    EXPECT_THROW(bound.Run(), Exception);
    EXPECT_EQ(StateOf(*bound.future), State::Busy);
}

TEST(TaskWrapper, AnyOtherExceptionLeavesAndTheFutureStaysBusy) {
    ExpectLeaves(std::runtime_error("standard"));
    ExpectLeaves(std::bad_alloc());
    ExpectLeaves(std::exception());
    ExpectLeaves(ErrorStorage());  // only the record, not the framework's base of exceptions
    ExpectLeaves(42);
}

TEST(TaskWrapper, FailureToCloneLeaves) {
    Bound bound([] { throw Uncloneable(std::logic_error("no clone")); });

    EXPECT_THROW(bound.Run(), std::logic_error);
    EXPECT_EQ(StateOf(*bound.future), State::Busy);
}

TEST(TaskWrapper, FailureToStartLeaves) {
    class Unstartable : public Future {
      public:
        bool Start() override { throw std::runtime_error("not now"); }
    };
    int calls = 0;
    const FuturePointer future(new Unstartable());
    Wrapper wrapper([&] { ++calls; }, future);

    EXPECT_THROW(wrapper(), std::runtime_error);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(StateOf(*future), State::NotStarted);
}

TEST(TaskWrapper, DestroysTheBoundArgumentsBeforeTheFutureIsCompleted) {
    struct Argument {
        explicit Argument(const Future& observed, State& seen) : future(&observed), state(&seen) {}
        ~Argument() { *state = StateOf(*future); }
        const Future* future;
        State* state;
    };
    State atDestruction = State::NotStarted;
    FuturePointer future(new Future());
    auto argument = std::make_shared<Argument>(*future, atDestruction);
    Wrapper wrapper([argument] {}, future);
    argument.reset();
    wrapper();

    EXPECT_EQ(atDestruction, State::Busy);
    EXPECT_EQ(StateOf(*future), State::Normal);
}

TEST(TaskWrapper, KeepsACallableThatThrew) {
    for (const bool known : {true, false}) {
        auto argument = std::make_shared<int>(0);
        const std::weak_ptr<int> watched = argument;
        Bound bound([argument, known] {
            if (known) {
                throw Failure(1);
            }
            throw std::runtime_error("unknown");
        });
        argument.reset();
        try {
            bound.Run();
        } catch (const std::runtime_error&) {
        }
        EXPECT_FALSE(watched.expired());
        bound.wrapper.reset();
        EXPECT_TRUE(watched.expired());
    }
}

TEST(TaskWrapper, DestructorReleasesTheCallableBeforeTheFuture) {
    struct Argument {
        explicit Argument(bool& seen) : futureAlive(&seen) {}
        ~Argument() { *futureAlive = !future.expired(); }
        std::weak_ptr<Future> future;
        bool* futureAlive;
    };
    bool futureAlive = false;
    auto argument = std::make_shared<Argument>(futureAlive);
    FuturePointer future(new Future());
    argument->future = future;
    auto wrapper = std::make_unique<Wrapper>([argument] {}, future);
    const std::weak_ptr<Future> watched = future;
    future.reset();
    argument.reset();
    wrapper.reset();

    EXPECT_TRUE(futureAlive);
    EXPECT_TRUE(watched.expired());
}

TEST(TaskWrapper, SecondRunAfterANormalOneDoesNothing) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*bound.future), State::Normal);
    EXPECT_EQ(GetFutureObject(), nullptr);
}

TEST(TaskWrapper, SecondRunAfterAnErrorCallsAgainButTheOutcomeStays) {
    int calls = 0;
    Bound bound([&] {
        if (++calls == 1) {
            throw Failure(1);
        }
    });
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 2);
    EXPECT_EQ(StateOf(*bound.future), State::Error);
    EXPECT_THROW(bound.future->GetValue(), Failure);
}

TEST(TaskWrapper, SecondRunAfterACancellationIsRefused) {
    int calls = 0;
    FuturePointer future;
    Bound bound([&] {
        ++calls;
        future->RequestCancel();
    });
    future = bound.future;
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*future), State::Cancelled);
}

TEST(TaskWrapper, RecreateGivesTheSameWorkWithANewAttachedFuture) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    const std::shared_ptr<ITaskState> fresh = bound.wrapper->Recreate();
    ASSERT_NE(fresh, nullptr);
    const auto future = fresh->GetFuture();

    EXPECT_NE(std::dynamic_pointer_cast<Wrapper>(fresh), nullptr) << "another type";
    EXPECT_NE(future, bound.future);
    EXPECT_EQ(StateOf(*future), State::NotStarted);
    (*fresh)();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*future), State::Normal);
    EXPECT_TRUE(future->TimedWait(TimePoint::min())) << "not attached";
    EXPECT_EQ(StateOf(*bound.future), State::NotStarted);
}

TEST(TaskWrapper, RecreateCopiesTheBoundArguments) {
    int total = 0;
    Bound bound([count = 0, &total]() mutable { total += ++count; });
    const auto fresh = bound.wrapper->Recreate();
    bound.Run();
    (*fresh)();

    EXPECT_EQ(total, 2);
}

TEST(TaskWrapper, RecreateAfterANormalRunGivesNothing) {
    Bound bound([] {});
    bound.Run();

    EXPECT_EQ(bound.wrapper->Recreate(), nullptr);
}

TEST(TaskWrapper, RecreateAfterAnErrorOrACancellationGivesTheWorkAgain) {
    Bound failed([] { throw Failure(1); });
    failed.Run();
    EXPECT_NE(failed.wrapper->Recreate(), nullptr);

    Bound cancelled([] {});
    cancelled.future->RequestCancel();
    cancelled.Run();
    EXPECT_NE(cancelled.wrapper->Recreate(), nullptr);
}

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

// The future is still the current one while the bound arguments die and the waiters are woken.
TEST(TaskWrapper, PutsTheOuterFutureBackAfterTheCompletion) {
    struct Argument {
        explicit Argument(std::shared_ptr<FutureState>& seen) : future(&seen) {}
        ~Argument() { *future = GetFutureObject(); }
        std::shared_ptr<FutureState>* future;
    };
    std::shared_ptr<FutureState> atDestruction;
    auto argument = std::make_shared<Argument>(atDestruction);
    Bound bound([argument] {});
    argument.reset();
    bound.Run();

    EXPECT_EQ(atDestruction, bound.future);
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
