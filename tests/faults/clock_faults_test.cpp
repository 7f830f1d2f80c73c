// Clocks that are set, or jump because the machine was suspended, during each wait that has an end. Those of the scheduler are in
// tests/scheduler/clock_steps_test.cpp, the 30 s of a teardown in tests/threadpool/thread_pool_stop_grace_whitebox_test.cpp.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/time_limit_exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/stop_all.h"
#include "concurrency/jobs/within.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/own_event.h"
#include "tests/scheduler/moments.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/stopwatch.h"
#include "tests/tasks/future_fixture.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr auto kLimit = 100ms;

// What is waited for. It does not come before Release().
class Awaited {
  public:
    Awaited() {
        m_group.Run(L"of a group", [mayEnd = m_mayEnd] { mayEnd->Wait(); });
        fifo.lock();
        checked.lock();
    }
    ~Awaited() { Release(); }
    Awaited(const Awaited&) = delete;
    Awaited& operator=(const Awaited&) = delete;

    // On the constructing thread.
    void Release() {
        if (m_isReleased) {
            return;
        }
        m_isReleased = true;
        m_mayEnd->Open();
        fifo.unlock();
        checked.unlock();
        future->SetValue();
    }

    const Job<void>& OneJob() const { return m_job; }
    const Job<void>& OtherJob() const { return m_other; }
    JobGroup& Group() { return m_group; }

    fifo_mutex fifo;
    checked_mutex checked;
    const OwnEvent never;
    const FuturePointer future = AttachedFutureIn(State::Busy);

  private:
    const ConcurrencyLifetime m_lifetime;
    const std::shared_ptr<Gate> m_mayEnd = std::make_shared<Gate>();
    Job<void> m_job = RunHeld(m_mayEnd);
    Job<void> m_other = RunHeld(m_mayEnd);
    JobGroup m_group{L"group"};
    bool m_isReleased = false;
};

enum class EndsBy { WallClock, MonotonicClock, Platform };

struct LimitedWait {
    const char* name;
    EndsBy endsBy;
    // For kLimit; returns whether the time was up.
    bool (*timesOut)(Awaited& awaited);
};

std::ostream& operator<<(std::ostream& stream, const LimitedWait& wait) {
    return stream << wait.name;
}

template <typename Mutex>
bool NotTaken(Mutex& mutex, bool isTaken) {
    if (isTaken) {
        mutex.unlock();
    }
    return !isTaken;
}

template <typename Call>
bool ThrowsTimeLimit(Call call) {
    try {
        call();
        return false;
    } catch (const TimeLimitException&) {
        return true;
    }
}

constexpr DWORD kMilliseconds = 100;

const LimitedWait kWaits[] = {
    {"FifoMutexFor", EndsBy::WallClock,
     [](Awaited& awaited) { return NotTaken(awaited.fifo, awaited.fifo.try_lock_for(kLimit)); }},
    {"FifoMutexUntil", EndsBy::WallClock,
     [](Awaited& awaited) { return NotTaken(awaited.fifo, awaited.fifo.try_lock_until(Now() + kLimit)); }},
    {"CheckedMutex", EndsBy::WallClock,
     [](Awaited& awaited) { return NotTaken(awaited.checked, awaited.checked.timed_lock(Now() + kLimit)); }},
    {"Future", EndsBy::WallClock, [](Awaited& awaited) { return !awaited.future->TimedWait(Now() + kLimit); }},
    {"Job", EndsBy::MonotonicClock, [](Awaited& awaited) { return !awaited.OneJob().WaitFor(kLimit); }},
    {"AnyJob", EndsBy::MonotonicClock,
     [](Awaited& awaited) { return !WhenAnyFor(kLimit, awaited.OneJob(), awaited.OtherJob()).has_value(); }},
    {"Group", EndsBy::MonotonicClock, [](Awaited& awaited) { return !awaited.Group().WaitFor(kLimit); }},
    {"LimitOfAJob", EndsBy::MonotonicClock,
     [](Awaited&) {
         auto job = Orvane::Run(L"limited", [] { SleepUntilAsked(); });
         job.CancelAfter(kLimit);
         return ThrowsTimeLimit([&job] { job.Get(); });
     }},
    {"LimitOfAGroup", EndsBy::MonotonicClock,
     [](Awaited&) {
         JobGroup group(L"limited");
         group.Run(L"of a group", [] { SleepUntilAsked(); });
         group.CancelAfter(kLimit);
         return ThrowsTimeLimit([&group] { group.Wait(); });
     }},
    {"Within", EndsBy::MonotonicClock,
     [](Awaited&) {
         return ThrowsTimeLimit([] {
             const Within limit(kLimit);
             SleepUntilAsked();
         });
     }},
    {"StopAll", EndsBy::MonotonicClock, [](Awaited&) { return !StopAll(kLimit, L"test").empty(); }},
    {"Sleep", EndsBy::Platform,
     [](Awaited&) {
         CancellableSleep(kMilliseconds);
         return true;
     }},
    {"Handle", EndsBy::Platform,
     [](Awaited& awaited) {
         return CancellableWaitForSingleObject(awaited.never.Get(), kMilliseconds) == WAIT_TIMEOUT;
     }},
    {"Handles", EndsBy::Platform,
     [](Awaited& awaited) {
         const std::array<HANDLE, 2> handles{awaited.never.Get(), awaited.never.Get()};
         return CancellableWaitForMultipleObjects(2, handles.data(), kMilliseconds) == WAIT_TIMEOUT;
     }},
};

class ClockFault : public testing::TestWithParam<LimitedWait> {
  protected:
    // Begins to wait on a thread of its own.
    void Begin() {
        m_wait.emplace([this] { m_timesOut = GetParam().timesOut(m_awaited); });
    }

    // Until it has looked at the clock that it is to wait by. Of other waits nothing is awaited.
    void BeginAndLookAt(const FakeWallClock& clock) {
        const long before = clock.Reads();
        Begin();
        if (GetParam().endsBy == EndsBy::WallClock) {
            ASSERT_TRUE(Eventually([&] { return clock.Reads() > before; }));
        }
    }

    // To show that nothing happens.
    bool StillWaits() const {
        std::this_thread::sleep_for(3 * kLimit);
        return m_wait->IsRunning();
    }

    // BackgroundCall's patience is the limit: a wait that would last for hours is found.
    void ExpectTimeOut() {
        ASSERT_TRUE(m_wait->Ends());
        EXPECT_TRUE(m_timesOut);
    }

    void ExpectNoTimeOut() {
        ASSERT_TRUE(m_wait->Ends());
        EXPECT_FALSE(m_timesOut);
    }

    Awaited m_awaited;
    std::atomic<bool> m_timesOut = false;
    std::optional<BackgroundCall> m_wait;
};

TEST_P(ClockFault, ByAWallClockThatIsSetForwardEndsNoWaitOfTheOtherClocksEarly) {
    FakeWallClock clock;
    const Stopwatch stopwatch;
    BeginAndLookAt(clock);
    clock.Advance(5h);
    ExpectTimeOut();
    if (GetParam().endsBy != EndsBy::WallClock) {
        EXPECT_GE(stopwatch.Elapsed(), kLimit - 1ms);
    }
}

TEST_P(ClockFault, ByAWallClockThatIsSetBackProlongsOnlyTheWaitsOfThatClock) {
    FakeWallClock clock;
    BeginAndLookAt(clock);
    clock.Advance(-5h);
    if (GetParam().endsBy == EndsBy::WallClock) {
        EXPECT_TRUE(StillWaits());
        m_awaited.Release();
        ExpectNoTimeOut();
    } else {
        ExpectTimeOut();
    }
}

// The machine wakes, and both clocks have jumped.
TEST_P(ClockFault, OfASuspendedMachineEndsEachWaitWhoseTimeHasPassed) {
    FakeMonotonicClock monotonic(1h);
    FakeWallClock wall(Now());
    Begin();
    if (GetParam().endsBy != EndsBy::Platform) {
        EXPECT_TRUE(StillWaits());
    }
    monotonic.Advance(10h);
    wall.Set(Now() + 10h);
    ExpectTimeOut();
}

INSTANTIATE_TEST_SUITE_P(Of, ClockFault, testing::ValuesIn(kWaits),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
