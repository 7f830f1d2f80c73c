// What ForEach() and Map() throw when they have not done all items, and when.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/parallel_items.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(ParallelFailure, ComesOutAsItself) {
    const ConcurrencyLifetime lifetime;
    const auto fail = [](int item) {
        if (item == 77) {
            throw FailsAt{item};
        }
    };
    try {
        ForEach(L"fails", Numbers(1'000), fail);
        ADD_FAILURE() << "nothing thrown";
    } catch (const FailsAt& failure) {
        EXPECT_EQ(failure.number, 77);
    }
    EXPECT_THROW(Orvane::Run(L"inside", [&] { ForEach(L"fails", Numbers(1'000), fail); }).Get(), FailsAt);
}

// Item 0 fails when all the others that fit are in their waits.
void ExpectThatAFailureAsksTheOthers() {
    Blocked blocked;
    const auto item = [&blocked](int number) {
        if (number == 0) {
            EXPECT_TRUE(blocked.Enter(3));
            throw FailsAt{0};
        }
        blocked.Stay();
    };
    EXPECT_THROW(ForEach(L"fails", Numbers(4), item, 4), FailsAt);
    EXPECT_EQ(blocked.Left(), 3);
}

TEST(ParallelFailure, AsksTheOtherItems) {
    const ConcurrencyLifetime lifetime;
    ExpectThatAFailureAsksTheOthers();
}

TEST(ParallelFailure, AsksTheOtherItemsAlsoFromTheCallersThread) {
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"inside", [] { ExpectThatAFailureAsksTheOthers(); }).Get();
}

// As above, but the caller is one of those that wait.
TEST(ParallelFailure, AsksTheItemOfTheCaller) {
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"inside", [] {
        Blocked blocked;
        const DWORD caller = ::GetCurrentThreadId();
        const auto item = [&blocked, caller](int) {
            if (::GetCurrentThreadId() != caller) {
                EXPECT_TRUE(blocked.Enter(1));
                throw FailsAt{1};
            }
            blocked.Stay();
        };
        EXPECT_THROW(ForEach(L"fails", Numbers(2), item, 2), FailsAt);
        EXPECT_EQ(blocked.Left(), 1);
        EXPECT_FALSE(IsCancellationRequested());
    }).Get();
}

TEST(ParallelFailure, EndsTheItemsOfTheCaller) {
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"inside", [] {
        const DWORD caller = ::GetCurrentThreadId();
        std::atomic<bool> hasFailed = false;
        std::atomic<int> later = 0;
        const auto item = [&](int) {
            if (::GetCurrentThreadId() != caller) {
                hasFailed = true;
                throw FailsAt{1};
            }
            if (!hasFailed) {
                EXPECT_TRUE(Eventually([&] { return hasFailed.load(); }));
                Sleep(20);  // for the failure to be counted
            } else {
                ++later;
            }
        };
        EXPECT_THROW(ForEach(L"fails", Numbers(10'000), item, 2), FailsAt);
        EXPECT_LT(later, 10);
    }).Get();
}

TEST(ParallelFailure, OfTheCallersItemIsThrownToo) {
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"inside", [] {
        EXPECT_THROW(ForEach(L"fails", Numbers(10), [](int item) { throw FailsAt{item}; }, 1), FailsAt);
    }).Get();
}

TEST(ParallelFailure, IsAlsoACancelRequestThatNobodyMade) {
    const ConcurrencyLifetime lifetime;
    const auto throwPlainly = [](int item) {
        if (item == 5) {
            throw CancelRequestedException();
        }
    };
    EXPECT_THROW(ForEach(L"plain", Numbers(10), throwPlainly), CancelRequestedException);
    bool wasThrown = false;
    Orvane::Run(L"inside", [&] {
        try {
            ForEach(L"plain", Numbers(10), throwPlainly, 1);
        } catch (const CancelRequestedException&) {
            wasThrown = !IsCancellationRequested();
        }
    }).Get();
    EXPECT_TRUE(wasThrown);
}

class ParallelRequest : public testing::TestWithParam<std::size_t> {};

TEST_P(ParallelRequest, OfTheCallersRunLeavesWhenNoItemIsUnderWay) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    std::atomic<bool> left = false;
    const int bound = static_cast<int>(GetParam());
    auto job = Orvane::Run(L"caller", [&] {
        try {
            ForEach(L"blocked", Numbers(100), [&blocked](int) { blocked.Stay(); }, GetParam());
        } catch (const CancelRequestedException&) {
            EXPECT_EQ(blocked.Left(), blocked.Entered());
            left = true;
            throw;
        }
    });
    ASSERT_TRUE(blocked.Enter(bound));
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(left);
    EXPECT_EQ(blocked.Entered(), bound);
}

INSTANTIATE_TEST_SUITE_P(Bound, ParallelRequest, testing::Values(std::size_t{1}, std::size_t{4}));

// An item that does not answer at once is waited for.
TEST(ParallelRequest, WaitsForAnItemThatDoesNotAnswer) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    auto job = Orvane::Run(L"caller", [&turnstile] {
        auto items = Numbers(2);
        ForEach(L"held", items, [&turnstile](int) { turnstile.Pass(); }, 2);
    });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 2; }));
    job.Cancel();
    EXPECT_FALSE(job.WaitFor(20ms));
    turnstile.LetAllGo();
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST(ParallelRequest, ReachesTheItemsBetweenWhichItComes) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> done = 0;
    Gate begun;
    auto job = Orvane::Run(L"caller", [&] {
        ForEach(L"many", Numbers(1'000'000), [&](int) {
            ++done;
            begun.Open();
            PauseBriefly();
        });
    });
    begun.Wait();
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_LT(done, 1'000'000);
}

TEST(ParallelShutdown, IsACancelledExceptionAndNeverAPart) {
    ConcurrencyInitialize();
    Blocked blocked;
    std::atomic<int> cancelled = 0;
    {
        const BackgroundCall each([&] {
            try {
                ForEach(L"blocked", Numbers(100), [&blocked](int) { blocked.Stay(); }, 2);
            } catch (const CancelledException&) {
                ++cancelled;
            }
        });
        const BackgroundCall map([&] {
            try {
                static_cast<void>(Map(
                    L"blocked", Numbers(100),
                    [&blocked](int item) {
                        if (item > 0) {
                            blocked.Stay();
                        }
                        return item;
                    },
                    2));
            } catch (const CancelledException&) {
                ++cancelled;
            }
        });
        EXPECT_TRUE(blocked.Enter(3));
        ConcurrencyUninitialize();
    }
    EXPECT_EQ(cancelled, 2);
}

TEST(ParallelShutdown, RefusesLaterCalls) {
    const auto call = [] { ForEach(L"refused", Numbers(10), [](int) {}); };
    EXPECT_THROW(call(), Unexpected);
    {
        const ConcurrencyLifetime lifetime;
    }
    EXPECT_THROW(call(), Unexpected);
}

}  // namespace
