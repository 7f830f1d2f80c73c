// What goes into a job and comes out of it.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// One test for each way to start a job.
class JobValue : public JobTest, public testing::WithParamInterface<bool> {
  protected:
    template <typename... Parts>
    static auto Start(Parts&&... parts) {
        return GetParam() ? RunInNewThread(L"job", std::forward<Parts>(parts)...)
                          : Run(L"job", std::forward<Parts>(parts)...);
    }
};

TEST_P(JobValue, IsWhatTheCallableReturns) {
    Job<int> sum = Start([](int left, int right) { return left + right; }, 2, 3);
    EXPECT_EQ(sum.Get(), 5);
}

TEST_P(JobValue, OfACallableThatReturnsNothingIsNothing) {
    int runs = 0;
    Job<void> job = Start([&runs] { ++runs; });
    job.Get();
    EXPECT_EQ(runs, 1);
}

TEST_P(JobValue, IsTheSameObjectForAReference) {
    int number = 7;
    Job<int&> job = Start([&number]() -> int& { return number; });
    EXPECT_EQ(&job.Get(), &number);

    const std::string text = "text";
    Job<const std::string&> constant = Start([&text]() -> const std::string& { return text; });
    EXPECT_EQ(&constant.Get(), &text);
}

TEST_P(JobValue, MayBeMoveOnlyAsCallableAndArgumentsMay) {
    auto job = Start([own = std::make_unique<int>(7)](
                         std::unique_ptr<int> argument) { return std::make_unique<int>(*own + *argument); },
                     std::make_unique<int>(1));
    EXPECT_EQ(*job.Get(), 8);
}

TEST_P(JobValue, OfTypeBoolOrConstantIsReturnedToo) {
    EXPECT_TRUE(Start([] { return true; }).Get());
    Job<const std::string> job = Start([]() -> const std::string { return "constant"; });
    EXPECT_EQ(job.Get(), "constant");
}

INSTANTIATE_TEST_SUITE_P(IsOnItsOwnThread, JobValue, testing::Bool());

class JobCall : public JobTest {};

TEST_F(JobCall, KeepsItsOwnCopiesOfTheArguments) {
    const auto mayRead = std::make_shared<Gate>();
    std::string text = "before";
    auto job = Run(
        L"copies",
        [mayRead](const std::string& argument) {
            mayRead->Wait();
            return argument;
        },
        text);
    text = "after";
    mayRead->Open();
    EXPECT_EQ(job.Get(), "before");
}

TEST_F(JobCall, DecaysArraysAndFunctions) {
    const char text[] = "array";
    auto job = Run(
        L"decays",
        [](auto first, auto second) {
            static_assert(std::is_same_v<decltype(first), const char*>);
            static_assert(std::is_same_v<decltype(second), void (*)()>);
            return std::string(first);
        },
        text, SleepUntilAsked);
    EXPECT_EQ(job.Get(), "array");
}

TEST_F(JobCall, RefersToWhatIsWrappedAsAReference) {
    int number = 0;
    Run(L"refers", [](int& argument) { argument = 7; }, std::ref(number)).Get();
    EXPECT_EQ(number, 7);
}

TEST_F(JobCall, TakesMembersWithTheirObject) {
    struct Adder {
        int base;
        int Add(int number) const { return base + number; }
    };
    Adder adder{10};
    EXPECT_EQ(Run(L"function", &Adder::Add, adder, 5).Get(), 15);
    EXPECT_EQ(&Run(L"data", &Adder::base, &adder).Get(), &adder.base);
}

TEST_F(JobCall, MovesItsArgumentsIntoTheCallable) {
    std::vector<int> numbers(3, 7);
    const int* const data = numbers.data();
    auto job = Run(L"moves", [](std::vector<int> argument) { return argument; }, std::move(numbers));
    EXPECT_EQ(job.Get().data(), data);
}

TEST_F(JobCall, OfAnOrdinaryFunctionObjectCallsItOnce) {
    int calls = 0;
    const std::function<int()> function = [&calls] { return ++calls; };
    EXPECT_EQ(Run(L"function", function).Get(), 1);
    EXPECT_EQ(calls, 1);
}

TEST_F(JobCall, KeepsAlignmentAndSizeOfWhatItHolds) {
    struct alignas(128) Wide {
        std::array<std::byte, 512> bytes{};
    };
    const auto isAligned = [](const Wide& wide) {
        return reinterpret_cast<std::uintptr_t>(&wide) % alignof(Wide) == 0;
    };
    auto job = Run(L"wide", [isAligned, wide = Wide()] {
        EXPECT_TRUE(isAligned(wide));
        return Wide();
    });
    job.Wait();
    const Wide result = job.Get();
    EXPECT_TRUE(isAligned(result));

    std::array<int, 50'000> many{};
    std::iota(many.begin(), many.end(), 0);
    EXPECT_EQ(Run(L"many", [many] { return many; }).Get(), many);
}

class JobHandles : public JobTest {};

TEST_F(JobHandles, GiveTheResultOnce) {
    auto job = Run(L"once", [] { return 1; });
    EXPECT_EQ(job.Get(), 1);
    EXPECT_THROW(job.Get(), std::logic_error);
    EXPECT_THROW(job.Get(), std::logic_error);

    auto nothing = Run(L"once", [] {});
    nothing.Get();
    EXPECT_THROW(nothing.Get(), std::logic_error);
}

TEST_F(JobHandles, GiveAFailureOnce) {
    auto job = Run(L"once", [] { throw 42; });
    EXPECT_THROW(job.Get(), int);
    EXPECT_THROW(job.Get(), std::logic_error);
}

TEST_F(JobHandles, KeepTheJobWhenTheyMove) {
    auto first = Run(L"moves", [] { return 1; });
    Job<int> second = std::move(first);
    EXPECT_EQ(second.GetName(), L"moves");
    EXPECT_EQ(second.Get(), 1);
    first = Run(L"next", [] { return 2; });
    EXPECT_EQ(first.GetName(), L"next");
    EXPECT_EQ(first.Get(), 2);
}

template <typename T>
void ExpectNoJob(Job<T>& job) {
    EXPECT_FALSE(job.IsReady());
    EXPECT_EQ(job.GetName(), L"");
    EXPECT_THROW(job.Get(), std::logic_error);
    EXPECT_THROW(job.Wait(), std::logic_error);
    EXPECT_THROW((void)job.WaitFor(0s), std::logic_error);
    EXPECT_THROW((void)job.WaitUntil(std::chrono::steady_clock::now()), std::logic_error);
    EXPECT_THROW(job.Cancel(), std::logic_error);
    EXPECT_THROW(job.CancelAfter(1h), std::logic_error);
    EXPECT_THROW(job.EndEvent(), std::logic_error);
    EXPECT_THROW(job.GetCancelReason(), std::logic_error);
    EXPECT_THROW(WhenAll(job), std::logic_error);
    EXPECT_THROW(WhenAny(job), std::logic_error);
}

TEST_F(JobHandles, WithoutAJobSaySoAndAreDroppedInPeace) {
    Job<int> empty;
    ExpectNoJob(empty);

    auto moved = Run(L"moved", [] { return 1; });
    const Job<int> owner = std::move(moved);
    ExpectNoJob(moved);  // NOLINT(bugprone-use-after-move): that is what it is about

    auto detached = Run(L"detached", [] {});
    detached.Detach();
    ExpectNoJob(detached);
}

TEST_F(JobHandles, WithoutAJobKeepAWaitForOthersFromBeginning) {
    const auto sleeper = RunSleeper();
    const Job<void> empty;
    EXPECT_THROW(WhenAny(sleeper, empty), std::logic_error);
    EXPECT_THROW(WhenAny(empty, sleeper), std::logic_error);
}

TEST_F(JobHandles, OnAssignmentDropTheFormerJobAndWaitForIt) {
    bool hasLeft = false;
    const auto begun = std::make_shared<Gate>();
    auto job = Run(L"former", [begun, &hasLeft] {
        begun->Open();
        try {
            SleepUntilAsked();
        } catch (...) {
            hasLeft = true;
            throw;
        }
    });
    begun->Wait();
    job = Run(L"next", [] {});
    EXPECT_TRUE(hasLeft);
    EXPECT_EQ(job.GetName(), L"next");
    job.Get();
}

TEST_F(JobHandles, AreReadyWhenTheJobHasEndedNotBefore) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    EXPECT_FALSE(job.IsReady());
    job.Cancel();
    EXPECT_FALSE(job.IsReady());
    mayEnd->Open();
    job.Wait();
    EXPECT_TRUE(job.IsReady());
    job.Get();
}

class JobName : public JobTest {};

TEST_F(JobName, IsKeptInFullHoweverLong) {
    for (const std::size_t length : {std::size_t{29}, std::size_t{30}, std::size_t{10'000}}) {
        const std::wstring name(length, L'n');
        EXPECT_EQ(Run(name.c_str(), [] {}).GetName(), name);
        EXPECT_EQ(RunInNewThread(name.c_str(), [] {}).GetName(), name);
        Post(name.c_str(), [] {});
    }
}

TEST_F(JobName, MayBeNullOrEmpty) {
    for (const wchar_t* const name : {static_cast<const wchar_t*>(nullptr), L""}) {
        auto job = Run(name, [] { return 1; });
        EXPECT_EQ(job.GetName(), L"");
        EXPECT_EQ(job.Get(), 1);
        EXPECT_EQ(RunInNewThread(name, [] { return 1; }).Get(), 1);
        Post(name, [] {});
    }
}

TEST_F(JobName, IsACopy) {
    std::wstring name = L"name";
    const auto job = Run(name.c_str(), [] {});
    name = L"else";
    EXPECT_EQ(job.GetName(), L"name");
}

}  // namespace
