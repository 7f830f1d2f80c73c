// What becomes of an exception that leaves a scheduled run.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/failure_handler.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class FailedRun : public testing::Test {
  protected:
    FailedRun() {
        s_names.clear();
        s_errors.clear();
        SetFailureHandler(&Keep);
    }
    ~FailedRun() override { SetFailureHandler(nullptr); }

    // Of one run that throws so.
    template <typename Error>
    static std::exception_ptr HandedOver(const Error& error, const wchar_t* name = L"Failing") {
        Tracker tracker = Schedule(name, 0s, 0s, [error] { throw error; });
        EXPECT_TRUE(Eventually([] { return Count() == 1; }));
        tracker.Wait();
        const std::lock_guard lock(s_mutex);
        return s_errors.empty() ? nullptr : s_errors.front();
    }

    template <typename Error>
    static bool Is(const std::exception_ptr& error) {
        try {
            std::rethrow_exception(error);
        } catch (const Error&) {
            return true;
        } catch (...) {
            return false;
        }
    }

    static std::size_t Count() {
        const std::lock_guard lock(s_mutex);
        return s_errors.size();
    }

    static inline std::mutex s_mutex;
    static inline std::vector<std::wstring> s_names;
    static inline std::vector<std::exception_ptr> s_errors;

    const ConcurrencyLifetime m_lifetime;

  private:
    static void Keep(const UnreadFailure& failure) {
        const std::lock_guard lock(s_mutex);
        s_names.emplace_back(failure.name);
        s_errors.push_back(failure.error);
    }
};

TEST_F(FailedRun, GoesToTheHandlerWithItsNameAndItsException) {
    EXPECT_TRUE(Is<std::runtime_error>(HandedOver(std::runtime_error("on purpose"))));
    EXPECT_EQ(s_names, std::vector<std::wstring>{L"Failing"});
}

TEST_F(FailedRun, GoesToTheHandlerWithAnyKindOfException) {
    EXPECT_TRUE(Is<int>(HandedOver(7)));
}

TEST_F(FailedRun, GoesToTheHandlerWithAnExceptionOfTheLibrary) {
    EXPECT_TRUE(Is<Unexpected>(HandedOver(Unexpected(L"on purpose"))));
}

TEST_F(FailedRun, GoesToTheHandlerWithAnExceptionThatAFutureKeeps) {
    EXPECT_TRUE(Is<CancelledException>(HandedOver(CancelledException())));
}

TEST_F(FailedRun, OfAScheduleWithoutANameHasAnEmptyOne) {
    HandedOver(std::runtime_error("on purpose"), nullptr);
    EXPECT_EQ(s_names, std::vector<std::wstring>{L""});
}

// It only looks like one that was cancelled.
TEST_F(FailedRun, IsOneThatThrowsTheCancellationWithoutARequest) {
    EXPECT_TRUE(Is<CancelRequestedException>(HandedOver(CancelRequestedException())));
}

TEST_F(FailedRun, IsNoneThatLeavesBecauseItWasAsked) {
    Gate entered;
    {
        const Tracker tracker = Schedule(L"Asked", 0s, 0s, [&entered] {
            entered.Open();
            CancellableSleep(INFINITE);
        });
        entered.Wait();
    }
    EXPECT_EQ(Count(), 0U);
}

TEST_F(FailedRun, DoesNotEndItsSchedule) {
    std::atomic<int> runs = 0;
    const Tracker tracker = Schedule(L"Failing", 0s, 2ms, [&runs] {
        ++runs;
        throw std::runtime_error("on purpose");
    });
    EXPECT_TRUE(Eventually([&runs] { return runs >= 3 && Count() >= 2; }));
}

}  // namespace
