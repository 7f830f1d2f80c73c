// WhenAll() and WhenAny().
#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

template <typename T>
Job<T> Ended(Job<T> job) {
    job.Wait();
    return job;
}

class WhenAllJobs : public JobTest {};

TEST_F(WhenAllJobs, HaveEndedReturnsTheirResultsInOrder) {
    int number = 7;
    auto value = Run(L"value", [] { return 1; });
    auto nothing = Run(L"nothing", [] {});
    auto moveOnly = Run(L"move-only", [] { return std::make_unique<int>(3); });
    auto reference = Run(L"reference", [&number]() -> int& { return number; });
    auto results = WhenAll(value, nothing, moveOnly, reference);
    static_assert(std::is_same_v<decltype(results), std::tuple<int, std::monostate, std::unique_ptr<int>, int&>>);
    EXPECT_EQ(std::get<0>(results), 1);
    EXPECT_EQ(*std::get<2>(results), 3);
    EXPECT_EQ(&std::get<3>(results), &number);
    EXPECT_THROW(value.Get(), std::logic_error);
}

TEST_F(WhenAllJobs, AreTemporariesWorksToo) {
    const auto [left, right] = WhenAll(Run(L"left", [] { return 1; }), Run(L"right", [] { return std::string("2"); }));
    EXPECT_EQ(left, 1);
    EXPECT_EQ(right, "2");
}

TEST_F(WhenAllJobs, OfARangeReturnsAVector) {
    std::vector<Job<int>> jobs;
    for (int i = 0; i < 20; ++i) {
        jobs.push_back(Run(L"job", [i] { return i; }));
    }
    const std::vector<int> results = WhenAll(jobs);
    ASSERT_EQ(results.size(), 20U);
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(results[i], static_cast<int>(i));
    }
    int number = 7;
    std::vector<Job<int&>> references;
    references.push_back(Run(L"job", [&number]() -> int& { return number; }));
    EXPECT_EQ(&WhenAll(references)[0].get(), &number);
    std::list<Job<void>> list;
    list.push_back(Run(L"job", [] {}));
    EXPECT_EQ(WhenAll(list).size(), 1U);
}

TEST_F(WhenAllJobs, AreNoneReturnsNothingAtOnce) {
    EXPECT_EQ(WhenAll(), std::tuple<>());
    std::vector<Job<int>> none;
    EXPECT_TRUE(WhenAll(none).empty());
}

TEST_F(WhenAllJobs, WaitsForTheLast) {
    const auto mayEnd = std::make_shared<Gate>();
    auto held = RunHeld(mayEnd);
    auto ended = Run(L"ended", [] { return 1; });
    const BackgroundCall all([&] { WhenAll(ended, held); });
    Sleep(30);
    EXPECT_TRUE(all.IsRunning());
    mayEnd->Open();
    EXPECT_TRUE(all.Ends());
}

TEST_F(WhenAllJobs, ThrowsTheFirstFailureInTimeWhileOthersRun) {
    auto sleeper = RunSleeper();
    const auto mayFail = std::make_shared<Gate>();
    auto later = Run(L"later", [mayFail]() -> int {
        mayFail->Wait();
        throw std::runtime_error("later");
    });
    auto earlier = Ended(Run(L"earlier", []() -> int { throw std::invalid_argument("earlier"); }));
    mayFail->Open();
    later.Wait();
    EXPECT_THROW(WhenAll(sleeper, later, earlier), std::invalid_argument);
    EXPECT_FALSE(sleeper.IsReady());
    EXPECT_THROW(later.Get(), std::runtime_error);  // kept
}

TEST_F(WhenAllJobs, IsWokenByAFailure) {
    auto sleeper = RunSleeper();
    const auto mayFail = std::make_shared<Gate>();
    auto fails = Run(L"fails", [mayFail] {
        mayFail->Wait();
        throw 42;
    });
    auto value = Run(L"value", [] { return 1; });
    const BackgroundCall all([&] { EXPECT_THROW(WhenAll(value, sleeper, fails), int); });
    Sleep(30);
    EXPECT_TRUE(all.IsRunning());
    mayFail->Open();
    EXPECT_TRUE(all.Ends());
    EXPECT_EQ(value.Get(), 1);  // the others keep their results
}

TEST_F(WhenAllJobs, ThrowsForACancelledOne) {
    auto value = Ended(Run(L"value", [] { return 1; }));
    auto cancelled = RunSleeper();
    cancelled.Cancel();
    EXPECT_THROW(WhenAll(value, cancelled), CancelledException);

    std::vector<Job<void>> range;
    range.push_back(RunSleeper());
    range.push_back(RunSleeper());
    range[1].CancelAfter(0s);
    EXPECT_THROW(WhenAll(range), TimeLimitException);
}

TEST_F(WhenAllJobs, UntilADeadlineReturnNothingAndKeepTheirResults) {
    auto value = Ended(Run(L"value", [] { return 1; }));
    auto sleeper = RunSleeper();
    EXPECT_EQ(WhenAllFor(1ms, value, sleeper), std::nullopt);
    EXPECT_EQ(WhenAllFor(0s, value, sleeper), std::nullopt);
    EXPECT_EQ(WhenAllUntil(std::chrono::steady_clock::now() + 1ms, value, sleeper), std::nullopt);
    EXPECT_EQ(value.Get(), 1);

    std::vector<Job<void>> range;
    range.push_back(std::move(sleeper));
    EXPECT_EQ(WhenAllFor(1ms, range), std::nullopt);
    EXPECT_EQ(WhenAllUntil(std::chrono::system_clock::now() + 1ms, range), std::nullopt);
}

TEST_F(WhenAllJobs, BeforeADeadlineReturnTheirResults) {
    auto first = Run(L"first", [] { return 1; });
    auto second = Run(L"second", [] { return 2; });
    EXPECT_EQ(WhenAllFor(1h, first, second), std::tuple(1, 2));
    auto third = Run(L"third", [] { return 3; });
    EXPECT_EQ(WhenAllUntil((std::chrono::steady_clock::time_point::max)(), third), std::tuple(3));
    std::vector<Job<int>> range;
    range.push_back(Run(L"fourth", [] { return 4; }));
    EXPECT_EQ(WhenAllUntil(std::chrono::steady_clock::now() + 1h, range), std::vector{4});
}

TEST_F(WhenAllJobs, OneOfWhichWasTakenSaySo) {
    auto taken = Run(L"taken", [] { return 1; });
    taken.Get();
    EXPECT_THROW(WhenAll(taken), std::logic_error);
}

class WhenAnyJob : public JobTest {};

TEST_F(WhenAnyJob, HasEndedReturnsItsIndexAndTakesNothing) {
    auto sleeper = RunSleeper();
    auto value = Run(L"value", [] { return 7; });
    EXPECT_EQ(WhenAny(sleeper, value), 1U);
    EXPECT_EQ(value.Get(), 7);
    EXPECT_EQ(WhenAny(sleeper, value), 1U);  // also when it was taken
    EXPECT_FALSE(sleeper.IsReady());
    EXPECT_EQ(sleeper.GetCancelReason().cause, CancelCause::None);
}

TEST_F(WhenAnyJob, IsTheFirstInTimeNotInOrder) {
    const auto mayEnd = std::make_shared<Gate>();
    auto later = RunHeld(mayEnd);
    auto earlier = Ended(Run(L"earlier", [] {}));
    mayEnd->Open();
    later.Wait();
    EXPECT_GE(WhenAny(later, earlier), 0U);
    // The platform's clock may not tell the two apart; then the lowest wins. So let it go on.
    const auto mayEndMuchLater = std::make_shared<Gate>();
    auto last = RunHeld(mayEndMuchLater);
    Sleep(50);
    mayEndMuchLater->Open();
    last.Wait();
    EXPECT_EQ(WhenAny(last, earlier), 1U);
    EXPECT_EQ(WhenAny(earlier, last), 0U);
}

TEST_F(WhenAnyJob, GivenTwiceIsTheLowestIndex) {
    auto job = Ended(Run(L"job", [] {}));
    EXPECT_EQ(WhenAny(job, job), 0U);
    auto sleeper = RunSleeper();
    EXPECT_EQ(WhenAny(sleeper, job, job), 1U);
}

TEST_F(WhenAnyJob, MayHaveFailedOrBeenCancelled) {
    auto sleeper = RunSleeper();
    auto failed = Run(L"fails", [] { throw 42; });
    EXPECT_EQ(WhenAny(sleeper, failed), 1U);
    EXPECT_THROW(failed.Get(), int);
    auto cancelled = RunSleeper();
    cancelled.Cancel();
    EXPECT_EQ(WhenAny(sleeper, cancelled), 1U);
}

TEST_F(WhenAnyJob, OfARangeIsFoundByItsIndex) {
    std::vector<Job<void>> jobs;
    for (int i = 0; i < 10; ++i) {
        jobs.push_back(RunInNewThread(L"sleeper", [] { SleepUntilAsked(); }));
    }
    jobs[6].Cancel();
    EXPECT_EQ(WhenAny(jobs), 6U);
    EXPECT_EQ(WhenAnyFor(1h, jobs), 6U);
}

TEST_F(WhenAnyJob, WakesTheWaiter) {
    auto sleeper = RunSleeper();
    const auto mayEnd = std::make_shared<Gate>();
    auto held = RunHeld(mayEnd);
    const BackgroundCall any([&] { EXPECT_EQ(WhenAny(sleeper, held), 1U); });
    Sleep(30);
    EXPECT_TRUE(any.IsRunning());
    mayEnd->Open();
    EXPECT_TRUE(any.Ends());
}

TEST_F(WhenAnyJob, OfNoneIsAnError) {
    const std::vector<Job<int>> none;
    EXPECT_THROW(WhenAny(none), std::invalid_argument);
    EXPECT_THROW((void)WhenAnyFor(1ms, none), std::invalid_argument);
}

TEST_F(WhenAnyJob, UntilADeadlineIsNone) {
    auto sleeper = RunSleeper();
    EXPECT_EQ(WhenAnyFor(1ms, sleeper), std::nullopt);
    EXPECT_EQ(WhenAnyFor(-1h, sleeper), std::nullopt);
    EXPECT_EQ(WhenAnyUntil(std::chrono::steady_clock::now() + 1ms, sleeper), std::nullopt);
    EXPECT_EQ(WhenAnyUntil((std::chrono::system_clock::time_point::min)(), sleeper), std::nullopt);
    std::vector<Job<void>> range;
    range.push_back(std::move(sleeper));
    EXPECT_EQ(WhenAnyFor(1ms, range), std::nullopt);
    EXPECT_EQ(WhenAnyUntil(std::chrono::steady_clock::now() + 1ms, range), std::nullopt);
    range[0].Cancel();
    EXPECT_EQ(WhenAnyUntil(std::chrono::steady_clock::now() + 1h, range), 0U);
}

}  // namespace
