// What leaves the callable of a job, and what Get() makes of it.
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

class JobFailure : public JobTest {};

// Outside of std, and of every other hierarchy.
struct OwnError {
    int number;
};

struct Base {
    virtual ~Base() = default;
};
struct Derived : Base {
    std::string text = "derived";
};

TEST_F(JobFailure, OfAStandardTypeIsThrownAsItself) {
    EXPECT_EQ(MessageOf<std::invalid_argument>(
                  [] { Run(L"fails", []() -> int { throw std::invalid_argument("no number"); }).Get(); }),
              "no number");
    EXPECT_THROW(Run(L"fails", [] { throw std::bad_alloc(); }).Get(), std::bad_alloc);
    EXPECT_EQ(MessageOf<std::invalid_argument>(
                  [] { RunInNewThread(L"fails", [] { throw std::invalid_argument("no thread"); }).Get(); }),
              "no thread");
}

TEST_F(JobFailure, OfATypeOutsideStdIsThrownAsItself) {
    try {
        Run(L"fails", [] { throw 42; }).Get();
        ADD_FAILURE() << "nothing thrown";
    } catch (int number) {
        EXPECT_EQ(number, 42);
    }
    try {
        Run(L"fails", [] { throw OwnError{7}; }).Get();
        ADD_FAILURE() << "nothing thrown";
    } catch (const OwnError& error) {
        EXPECT_EQ(error.number, 7);
    }
    EXPECT_THROW(Run(L"fails", [] { throw L"text"; }).Get(), const wchar_t*);
}

TEST_F(JobFailure, KeepsItsDynamicType) {
    try {
        Run(L"fails", [] { throw Derived(); }).Get();
        ADD_FAILURE() << "nothing thrown";
    } catch (const Base& error) {
        ASSERT_NE(dynamic_cast<const Derived*>(&error), nullptr);
        EXPECT_EQ(dynamic_cast<const Derived&>(error).text, "derived");
    }
}

TEST_F(JobFailure, OfAKindOfTheFrameworkIsThrownAsItself) {
    EXPECT_EQ(MessageOf<Unexpected>([] { Run(L"fails", [] { throw Unexpected(L"code %d", 7); }).Get(); }), "code 7");
    EXPECT_THROW(Run(L"fails", [] { throw InvalidArg(ErrorStorage()); }).Get(), InvalidArg);
    EXPECT_THROW(Run(L"fails", [] { throw InternalError(ErrorStorage()); }).Get(), InternalError);
}

// A kind that no factory knows.
class OwnKind : public ExceptionBase {
  public:
    OwnKind() : ExceptionBase(ErrorStorage()) {}
};

TEST_F(JobFailure, OfAnUnregisteredKindIsThrownAsItself) {
    EXPECT_THROW(Run(L"fails", [] { throw OwnKind(); }).Get(), OwnKind);
}

struct Refused : std::runtime_error, virtual CloneableException {
    Refused() : std::runtime_error("refused") {}
    std::shared_ptr<CloneableException> Clone() const override { throw std::logic_error("cloned"); }
    void Rethrow() const override { throw std::logic_error("rethrown"); }
};

TEST_F(JobFailure, OfATypeThatCanBeClonedIsNotCloned) {
    EXPECT_EQ(MessageOf<Refused>([] { Run(L"fails", [] { throw Refused(); }).Get(); }), "refused");
}

struct Uncopyable {
    Uncopyable() = default;
    Uncopyable(const Uncopyable& other) : number(other.number) { throw std::logic_error("copied"); }
    int number = 7;
};

TEST_F(JobFailure, IsThrownAsItselfThoughItsCopyThrows) {
    try {
        Run(L"fails", [] { throw Uncopyable(); }).Get();
        ADD_FAILURE() << "nothing thrown";
    } catch (const Uncopyable& error) {
        EXPECT_EQ(error.number, 7);
    }
}

TEST_F(JobFailure, KeepsWhatIsNestedInIt) {
    try {
        Run(L"fails", [] {
            try {
                throw OwnError{7};
            } catch (...) {
                std::throw_with_nested(std::runtime_error("outer"));
            }
        }).Get();
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "outer");
        EXPECT_THROW(std::rethrow_if_nested(error), OwnError);
    }
}

TEST_F(JobFailure, OfAnEmptyFunctionIsABadCall) {
    EXPECT_THROW(Run(L"empty", std::function<int()>()).Get(), std::bad_function_call);
    EXPECT_THROW(RunInNewThread(L"empty", std::function<void()>()).Get(), std::bad_function_call);
}

TEST_F(JobFailure, OfTheResultsConstructorIsThrown) {
    struct Result {
        Result() { throw OwnError{7}; }
    };
    EXPECT_THROW(Run(L"fails", [] { return Result(); }).Get(), OwnError);
}

// A request that was made, to be carried elsewhere.
std::exception_ptr CarriedRequest() {
    std::exception_ptr carried;
    const auto begun = std::make_shared<Gate>();
    Job<void> asked = Orvane::Run(L"asked", [&carried, begun] {
        begun->Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            carried = std::current_exception();
            throw;
        }
    });
    begun->Wait();
    asked.Cancel();
    asked.Wait();
    return carried;
}

TEST_F(JobFailure, IsARequestThatNobodyMade) {
    auto plain = Run(L"plain", [] { throw CancelRequestedException(); });
    EXPECT_THROW(plain.Get(), CancelRequestedException);
    auto dedicated = RunInNewThread(L"dedicated", [] { throw CancelRequestedException(); });
    EXPECT_THROW(dedicated.Get(), CancelRequestedException);
}

TEST_F(JobFailure, IsARequestThatWasMadeToAnotherJob) {
    const std::exception_ptr carried = CarriedRequest();
    ASSERT_NE(carried, nullptr);
    auto job = Run(L"carries", [carried] { std::rethrow_exception(carried); });
    EXPECT_THROW(job.Get(), CancelRequestedException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
}

TEST_F(JobFailure, IsTheCancellationOfAnotherJob) {
    auto other = RunSleeper();
    other.Cancel();
    auto job = Run(L"reads", [&other] { other.Get(); });
    job.Wait();
    const std::uint64_t before = UnreadFailureCount();
    job = {};
    EXPECT_EQ(UnreadFailureCount(), before + 1);
}

TEST_F(JobFailure, OfAnAskedJobIsThrownAsItself) {
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"fails", [begun] {
        begun->Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            throw OwnError{7};
        }
    });
    begun->Wait();
    job.Cancel();
    EXPECT_THROW(job.Get(), OwnError);
}

class JobCancellation : public JobTest {};

TEST_F(JobCancellation, IsWhatGetThrowsForAJobThatLeft) {
    auto job = RunSleeper();
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Handle);
}

TEST_F(JobCancellation, IsMadeOfACancelledExceptionInAnAskedJob) {
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"leaves", [begun] {
        begun->Open();
        while (!IsCancellationRequested()) {
            Sleep(1);
        }
        throw CancelledException();
    });
    begun->Wait();
    job.Cancel();
    job.Wait();
    const std::uint64_t before = UnreadFailureCount();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(UnreadFailureCount(), before);
}

TEST_F(JobCancellation, LosesAgainstAValue) {
    const auto mayEnd = std::make_shared<Gate>();
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"value", [=] {
        begun->Open();
        mayEnd->Wait();
        return 7;
    });
    begun->Wait();
    job.Cancel();
    mayEnd->Open();
    EXPECT_EQ(job.Get(), 7);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Handle);
}

TEST_F(JobCancellation, OfAnEndedJobIsNothing) {
    auto job = Run(L"ended", [] { return 7; });
    job.Wait();
    job.Cancel();
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(job.Get(), 7);
}

TEST_F(JobCancellation, InTheOwnRunOnlyMakesTheRequest) {
    Job<int> job;
    const auto mayCancel = std::make_shared<Gate>();
    bool wentOn = false;
    job = Run(L"own", [&, mayCancel]() -> int {
        mayCancel->Wait();
        job.Cancel();
        wentOn = IsCancellationRequested();
        CancellationPoint();
        return 7;
    });
    mayCancel->Open();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(wentOn);
}

TEST_F(JobCancellation, OfManyInTheOwnRunReachesThoseBehindIt) {
    std::vector<Job<void>> jobs(3);
    const auto mayCancel = std::make_shared<Gate>();
    jobs[0] = RunSleeper();
    jobs[2] = RunSleeper();
    jobs[1] = Run(L"own", [&, mayCancel] {
        mayCancel->Wait();
        for (const auto& job : jobs) {
            job.Cancel();
        }
    });
    mayCancel->Open();
    for (auto& job : jobs) {
        job.Wait();
    }
    EXPECT_THROW(jobs[0].Get(), CancelledException);
    jobs[1].Get();
    EXPECT_THROW(jobs[2].Get(), CancelledException);
}

}  // namespace
