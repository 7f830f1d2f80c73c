// How long the queue lets its thread sleep, and what wakes it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/scheduler/scheduled_task_queue.h"
#include "concurrency/tasks/make_task.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/scheduler/moments.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A condition may wake its thread for no reason, but seldom; a thread that spins is awake many thousand times.
constexpr int kFewWakeUps = 5;

ScheduledTask Idle(TimePoint start) {
    return ScheduledTask(MakeTask(L"idle", [] {}), start, kOnce);
}

class ScheduledTaskQueueWait : public testing::Test {
  protected:
    // As the scheduler's thread does, but without taking anything out.
    void KeepWaiting() {
        m_hasBegun = true;
        while (m_queue.WaitForNextStart()) {
            ++m_wakeUps;
        }
    }

    bool HasBegun() const {
        return Eventually([this] { return m_hasBegun.load(); });
    }

    ScheduledTaskQueue m_queue;
    std::atomic<bool> m_hasBegun = false;
    std::atomic<int> m_wakeUps = 0;
};

// What a wait asks of the platform: the time-out in ticks, negative because it is relative.
class SleepRecorder {
  public:
    SleepRecorder() { s_find = m_patch.Original<FARPROC WINAPI(HMODULE, LPCSTR)>(); }
    SleepRecorder(const SleepRecorder&) = delete;
    SleepRecorder& operator=(const SleepRecorder&) = delete;

    const std::vector<std::int64_t>& Timeouts() const { return s_timeouts; }

  private:
    static LONG NTAPI Sleep(void*, void*, const LARGE_INTEGER* timeout) {
        s_timeouts.push_back(timeout->QuadPart);
        return 0;
    }

    static FARPROC WINAPI Find(HMODULE module, LPCSTR name) {
        if (std::strcmp(name, "RtlSleepConditionVariableCS") == 0) {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Sleep));
        }
        return s_find(module, name);
    }

    static inline std::vector<std::int64_t> s_timeouts;
    static inline FARPROC(WINAPI* s_find)(HMODULE, LPCSTR) = nullptr;

    const ImportPatch m_patch{LibraryUnderTest(), "GetProcAddress", &Find};
};

TEST_F(ScheduledTaskQueueWait, SleepsForTheTimeThatIsLeftADayAtMost) {
    const TimePoint now = Now();
    const FakeWallClock clock(now);
    const SleepRecorder recorder;
    constexpr std::int64_t kDay = 24LL * 3'600 * 10'000'000;
    constexpr std::int64_t kAtMostTooSoon = 1'000;
    // Each is the earliest when its turn comes.
    const std::vector<std::int64_t> distances{10 * kDay, kDay + 1, kDay, kDay - 1, 10'000'000, 10'000, 1};
    for (const std::int64_t distance : distances) {
        m_queue.Push(Idle(now + Duration(distance)));
        EXPECT_TRUE(m_queue.WaitForNextStart());
    }
    m_queue.Push(Idle(now));
    EXPECT_TRUE(m_queue.WaitForNextStart());

    ASSERT_EQ(recorder.Timeouts().size(), distances.size()) << "what is due needs no sleep";
    for (std::size_t i = 0; i < distances.size(); ++i) {
        const std::int64_t asked = -recorder.Timeouts()[i];
        const std::int64_t left = std::min(distances[i], kDay);
        EXPECT_LE(asked, left);
        EXPECT_GE(asked, std::max(left - kAtMostTooSoon, std::int64_t{1}));
    }
}

TEST_F(ScheduledTaskQueueWait, AsksForNoLimitWhileTheQueueIsEmpty) {
    const SleepRecorder timed;
    const RecordedSleeps other;

    EXPECT_TRUE(m_queue.WaitForNextStart());

    EXPECT_TRUE(timed.Timeouts().empty());
    EXPECT_EQ(other.List(), std::vector<DWORD>{INFINITE});
}

TEST_F(ScheduledTaskQueueWait, EndsWithAnInsertIntoAnEmptyQueue) {
    const BackgroundCall wait([this] {
        m_hasBegun = true;
        EXPECT_TRUE(m_queue.WaitForNextStart());
    });
    ASSERT_TRUE(HasBegun());
    std::this_thread::sleep_for(20ms);  // to show that nothing happens
    EXPECT_TRUE(wait.IsRunning());

    m_queue.Push(Idle(Now() + 1h));

    // A wait that had not begun by now would sleep for the hour.
    EXPECT_TRUE(wait.Ends());
}

TEST_F(ScheduledTaskQueueWait, EndsWithAnEarlierInsert) {
    m_queue.Push(Idle(Now() + 1h));
    const BackgroundCall wait([this] {
        m_hasBegun = true;
        ScheduledTask due;
        while (!m_queue.PopExpired(due)) {
            m_queue.WaitForNextStart();
        }
    });
    ASSERT_TRUE(HasBegun());
    std::this_thread::sleep_for(20ms);  // to show that nothing happens
    EXPECT_TRUE(wait.IsRunning());

    m_queue.Push(Idle(Now()));

    EXPECT_TRUE(wait.Ends());
}

TEST_F(ScheduledTaskQueueWait, GoesOnWhenALaterTaskIsInserted) {
    const TimePoint start = Now() + 1h;
    m_queue.Push(Idle(start));
    const BackgroundCall wait([this] { KeepWaiting(); });
    ASSERT_TRUE(HasBegun());
    for (int i = 0; i < 50; ++i) {
        m_queue.Push(Idle(start + Duration(i)));
        PauseBriefly();
    }
    EXPECT_LE(m_wakeUps, kFewWakeUps);
    m_queue.Stop();
    EXPECT_TRUE(wait.Ends());
}

// The thread does not hear of the step. Whatever is inserted afterwards brings it to look at the clock again.
TEST_F(ScheduledTaskQueueWait, EndsAtTheInsertOfALaterTaskWhenTheClockWasSetForward) {
    const TimePoint now = Now();
    FakeWallClock clock(now);
    m_queue.Push(Idle(now + 1h));
    const BackgroundCall wait([this] {
        ScheduledTask due;
        while (!m_queue.PopExpired(due)) {
            m_queue.WaitForNextStart();
        }
    });
    // Asked whether it is due, and how long there is to wait: it keeps the lock from here until it sleeps.
    ASSERT_TRUE(Eventually([&] { return clock.Reads() == 2; }));
    clock.Set(now + 2h);
    m_queue.Push(Idle(now + 3h));

    EXPECT_TRUE(wait.Ends());
}

TEST_F(ScheduledTaskQueueWait, EndsWithTheStop) {
    m_queue.Push(Idle(TimePoint::max()));
    const BackgroundCall wait([this] { KeepWaiting(); });
    std::this_thread::sleep_for(20ms);  // to show that nothing happens
    EXPECT_TRUE(wait.IsRunning());

    m_queue.Stop();

    EXPECT_TRUE(wait.Ends());
}

TEST_F(ScheduledTaskQueueWait, IsRefusedOnceStopped) {
    m_queue.Stop();

    EXPECT_FALSE(m_queue.WaitForNextStart());
    m_queue.Push(Idle(k1970));
    EXPECT_FALSE(m_queue.WaitForNextStart());
    m_queue.Push(Idle(TimePoint::min()));
    EXPECT_FALSE(m_queue.WaitForNextStart());
}

}  // namespace
