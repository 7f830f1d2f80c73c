// What becomes of an exception that ends a task's callable.
#include "concurrency/tasks/task_wrapper.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "tests/tasks/bound_wrapper.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskWrapper, FrameworkErrorIsKeptAndThrownAgainAsItsKind) {
    Bound bound([] { throw AccessDenied(ErrorStorage(ExceptionCOM(E_ACCESSDENIED, GUID{}, L"file %d", 3))); });
    bound.Run();
    EXPECT_EQ(StateOf(*bound.future), State::Error);
    try {
        bound.future->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const AccessDenied& error) {
        EXPECT_STREQ(error.message, L"file 3");
        EXPECT_EQ(error.hresult, static_cast<std::int32_t>(E_ACCESSDENIED));
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

}  // namespace
