// Lets every allocation of an operation fail, one after the other.
//
//     EXPECT_GT(ForEveryAllocation([](Attempt& attempt) {
//         Task task = MakeTask(L"task", [] {});
//         if (!attempt.Succeeds([&] { task.Reset(); })) {
//             EXPECT_FALSE(task.IsCancelled());  // nothing has changed
//             task.Reset();                      // and with memory it goes on
//         }
//     }), 0);
//
// The scenario runs again and again: the n-th allocation of operator new fails in its n-th attempt, until an attempt has
// got through without a failure. All that several times over: first cold, where the attempts also meet what is made
// once for the process, then warm, where nothing may be left behind. A cache may keep some blocks, even for good. A
// leak is told from it by growing every time.
//
// Threads: Succeeds() may be called on any thread, and concerns what that thread asks for.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <system_error>

#include "tests/support/allocations.h"
#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"

namespace Zarvo::Test {

class Attempt {
  public:
    explicit Attempt(int number) : m_number(number) {}
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    // Calls the operation; false if it threw the stated error, or a lock of the C++ library found no memory. Once in an attempt.
    template <typename Stated = std::bad_alloc, typename Operation>
    [[nodiscard]] bool Succeeds(Operation operation) {
        const Fault fault(*this);
        try {
            operation();
            return true;
        } catch (const std::exception& error) {
            if (dynamic_cast<const Stated*>(&error) == nullptr && !IsLockWithoutMemory(error)) {
                throw;
            }
            return false;
        }
    }

    // Whether there was an allocation with the attempt's number.
    bool HasFailed() const { return m_hasFailed; }

  private:
    // In GCC's posix thread model a mutex takes memory when it is first locked.
    static bool IsLockWithoutMemory(const std::exception& error) {
        const auto* const lock = dynamic_cast<const std::system_error*>(&error);
        return lock != nullptr && lock->code() == std::errc::not_enough_memory;
    }

    // Also tells the attempt when another exception leaves the operation.
    struct Fault {
        explicit Fault(Attempt& owner) : attempt(owner), failing(owner.m_number) {}
        ~Fault() { attempt.m_hasFailed = failing.HasFailed(); }
        Fault(const Fault&) = delete;
        Fault& operator=(const Fault&) = delete;

        Attempt& attempt;
        const FailingNew failing;
    };

    const int m_number;
    bool m_hasFailed = false;
};

// How many attempts met a failure.
template <typename Scenario>
int AttemptEveryAllocation(Scenario& scenario) {
    constexpr int kEndless = 1'000;
    for (int number = 1; number < kEndless; ++number) {
        Attempt attempt(number);
        scenario(attempt);
        if (!attempt.HasFailed()) {
            return number - 1;
        }
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "when allocation " << number << " failed";
            return number;
        }
    }
    ADD_FAILURE() << "there is always one more allocation";
    return kEndless;
}

// The most that failed in one go. What a scenario does once at its beginning belongs before the call.
template <typename Scenario>
int ForEveryAllocation(Scenario scenario) {
    constexpr int kTimes = 20;  // the first exception on a thread leaves two blocks behind, for each worker of the pool
    int most = AttemptEveryAllocation(scenario);
    Resources growth;
    for (int time = 0; time < kTimes && !testing::Test::HasFailure(); ++time) {
        const ResourceProbe probe;
        most = std::max(most, AttemptEveryAllocation(scenario));
        // Less is no leak: when the count began, a thread may still have been letting go of something.
        const auto nothingIsLeft = [&] {
            growth = probe.Growth();
            return growth.handles <= 0 && growth.threads <= 0 && growth.blocks <= 0 && growth.bytes <= 0;
        };
        if (Eventually(nothingIsLeft, std::chrono::seconds(5))) {
            return most;
        }
    }
    EXPECT_EQ(growth, Resources{}) << "left behind, " << kTimes << " times over";
    return most;
}

}  // namespace Zarvo::Test
