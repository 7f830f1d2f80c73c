// What a fifo_mutex asks of the platform: whom it wakes, how long it sleeps, and when it lets go of its guard.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/import_patch.h"
#include "tests/sync/others.h"
#include "tests/sync/queued_task.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// The wake-ups that one thread sends.
class WakeUps {
  public:
    WakeUps() { s_thread = 0; }
    WakeUps(const WakeUps&) = delete;
    WakeUps& operator=(const WakeUps&) = delete;

    // Counts those of the calling thread from now on.
    void CountMine() {
        s_ofAll = 0;
        s_ofOne = 0;
        s_thread = ::GetCurrentThreadId();
    }

    int OfAll() const { return s_ofAll; }
    int OfOne() const { return s_ofOne; }

  private:
    static void WINAPI WakeAll(CONDITION_VARIABLE* condition) {
        s_ofAll += ::GetCurrentThreadId() == s_thread ? 1 : 0;
        ::WakeAllConditionVariable(condition);
    }
    static void WINAPI WakeOne(CONDITION_VARIABLE* condition) {
        s_ofOne += ::GetCurrentThreadId() == s_thread ? 1 : 0;
        ::WakeConditionVariable(condition);
    }

    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::atomic<int> s_ofAll = 0;
    static inline std::atomic<int> s_ofOne = 0;

    const ImportPatch m_all{LibraryUnderTest(), "WakeAllConditionVariable", &WakeAll};
    const ImportPatch m_one{LibraryUnderTest(), "WakeConditionVariable", &WakeOne};
};

void LockAndUnlock(fifo_mutex& mutex) {
    mutex.lock();
    mutex.unlock();
}

TEST(FifoMutexWakeUp, OfAnUnlockIsForAll) {
    fifo_mutex mutex;
    mutex.lock();
    QueuedTask first(mutex, [&] { LockAndUnlock(mutex); });
    QueuedTask second(mutex, [&] { LockAndUnlock(mutex); });
    WakeUps wakeUps;
    wakeUps.CountMine();
    mutex.unlock();
    EXPECT_EQ(wakeUps.OfAll(), 1);
    EXPECT_EQ(wakeUps.OfOne(), 0);
    first->Join();
    second->Join();
}

// On purpose: the others see at their next look that the line is shorter.
TEST(FifoMutexWakeUp, IsNotSentByAWaiterThatTimesOut) {
    fifo_mutex mutex;
    ShiftedWallClock clock;
    WakeUps wakeUps;
    mutex.lock();
    QueuedTask leaver(mutex, [&, deadline = WallClockNow() + 1h] {
        wakeUps.CountMine();
        EXPECT_FALSE(mutex.try_lock_until(deadline));
        EXPECT_EQ(wakeUps.OfAll() + wakeUps.OfOne(), 0);
    });
    QueuedTask behind(mutex, [&] { LockAndUnlock(mutex); });
    clock.Advance(2h);
    EXPECT_TRUE(leaver->EndedNormally());
    mutex.unlock();
    EXPECT_TRUE(behind->EndedNormally());
}

TEST(FifoMutexWakeUp, IsNotSentByAWaiterThatIsCancelled) {
    fifo_mutex mutex;
    WakeUps wakeUps;
    mutex.lock();
    QueuedTask leaver(mutex, [&] {
        wakeUps.CountMine();
        EXPECT_THROW(mutex.lock(), CancelRequestedException);
        EXPECT_EQ(wakeUps.OfAll() + wakeUps.OfOne(), 0);
    });
    QueuedTask behind(mutex, [&] { LockAndUnlock(mutex); });
    leaver->Cancel();
    leaver->Join();
    mutex.unlock();
    EXPECT_TRUE(behind->EndedNormally());
}

// Time passes only in the sleeps that the library asks for, and nobody sleeps.
class TimeOfSleeps {
  public:
    explicit TimeOfSleeps(TimePoint start) : m_clock(start) {
        s_find = m_patch.Original<FARPROC WINAPI(HMODULE, LPCSTR)>();
        s_sleeps = {};
        s_now = start;
        s_clock = &m_clock;
    }
    TimeOfSleeps(const TimeOfSleeps&) = delete;
    TimeOfSleeps& operator=(const TimeOfSleeps&) = delete;

    const std::vector<Duration>& Sleeps() const { return s_sleeps; }

  private:
    // The time-out is in ticks, negative because it is relative.
    static LONG NTAPI Sleep(void*, void*, const LARGE_INTEGER* timeout) {
        s_sleeps.emplace_back(-timeout->QuadPart);
        s_now += s_sleeps.back();
        s_clock->Set(s_now);
        return 0;
    }

    static FARPROC WINAPI Find(HMODULE module, LPCSTR name) {
        if (std::strcmp(name, "RtlSleepConditionVariableCS") == 0) {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Sleep));
        }
        return s_find(module, name);
    }

    static inline std::vector<Duration> s_sleeps;
    static inline TimePoint s_now;
    static inline FakeWallClock* s_clock = nullptr;
    static inline FARPROC(WINAPI* s_find)(HMODULE, LPCSTR) = nullptr;

    FakeWallClock m_clock;
    const ImportPatch m_patch{LibraryUnderTest(), "GetProcAddress", &Find};
};

// A waiter looks at the line every tenth of a second, and at the deadline itself.
TEST(FifoMutex, SleepsNoLongerThanUntilTheDeadline) {
    fifo_mutex mutex;
    mutex.lock();
    const TimePoint start = WallClockNow();
    const TimeOfSleeps time(start);
    OnAnotherThread([&] { EXPECT_FALSE(mutex.try_lock_until(start + 250ms)); });
    EXPECT_EQ(time.Sleeps(), (std::vector<Duration>{100ms, 100ms, 50ms}));
}

// The critical sections that one thread leaves inside the library.
class LeftSections {
  public:
    LeftSections() { s_thread = 0; }
    LeftSections(const LeftSections&) = delete;
    LeftSections& operator=(const LeftSections&) = delete;

    template <typename Action>
    std::vector<CRITICAL_SECTION*> During(Action action) {
        s_sections.clear();
        s_thread = ::GetCurrentThreadId();
        action();
        s_thread = 0;
        return s_sections;
    }

  private:
    static void WINAPI Leave(CRITICAL_SECTION* section) {
        if (::GetCurrentThreadId() == s_thread) {
            s_sections.push_back(section);
        }
        ::LeaveCriticalSection(section);
    }

    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::vector<CRITICAL_SECTION*> s_sections;

    const ImportPatch m_patch{LibraryUnderTest(), "LeaveCriticalSection", &Leave};
};

// The guard is left last. Before that it is let go of once more: a time that has passed is a very short wait.
TEST(FifoMutex, LetsOthersAtTheLineThoughTheTimeHasPassed) {
    fifo_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] {
        LeftSections sections;
        const auto left = sections.During([&] { EXPECT_FALSE(mutex.try_lock_until(TimePoint::min())); });
        ASSERT_FALSE(left.empty());
        EXPECT_EQ(std::count(left.begin(), left.end(), left.back()), 2);
    });
}

}  // namespace
