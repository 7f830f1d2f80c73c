// What a fifo_mutex asks of the platform: whom it wakes, how long it sleeps, and when it lets go of its guard.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
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

// On purpose: a time-out and a request are failures, and wake nobody.
TEST(FifoMutexWakeUp, IsNotSentByAWaiterThatTimesOut) {
    fifo_mutex mutex;
    WakeUps wakeUps;
    mutex.lock();
    QueuedTask behind(mutex, [&] { LockAndUnlock(mutex); });
    OnAnotherThread([&] {
        wakeUps.CountMine();
        EXPECT_FALSE(mutex.try_lock_for(20ms));
        EXPECT_EQ(wakeUps.OfAll() + wakeUps.OfOne(), 0);
    });
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

TEST(FifoMutexSleep, LastsUntilTheDeadlineBehindAnOwner) {
    fifo_mutex mutex;
    mutex.lock();
    const TimePoint start = WallClockNow();
    const TimeOfSleeps time(start);
    OnAnotherThread([&] { EXPECT_FALSE(mutex.try_lock_until(start + 250ms)); });
    EXPECT_EQ(time.Sleeps(), (std::vector<Duration>{250ms}));
}

// How the library's threads sleep on conditions.
class Sleeps {
  public:
    struct OfThread {
        int endless = 0;
        int timed = 0;
    };

    Sleeps() {
        s_self = this;
        s_find = m_timed.Original<FARPROC WINAPI(HMODULE, LPCSTR)>();
    }
    Sleeps(const Sleeps&) = delete;
    Sleeps& operator=(const Sleeps&) = delete;

    OfThread Of(const QueuedTask& task) {
        const std::lock_guard lock(m_mutex);
        return m_threads[task->ThreadId()];
    }

    // The calling thread's sleeps last until Release(), whatever wakes it.
    void HoldMe() { m_held = ::GetCurrentThreadId(); }
    void Release() { m_release.Open(); }

  private:
    static BOOL WINAPI SleepWithoutLimit(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section, DWORD timeout) {
        return s_self->Begin(section, &OfThread::endless) ? TRUE
                                                          : ::SleepConditionVariableCS(condition, section, timeout);
    }

    using SleepInTicks = LONG(NTAPI*)(void*, void*, const LARGE_INTEGER*);
    static LONG NTAPI SleepForATime(void* condition, void* section, const LARGE_INTEGER* timeout) {
        return s_self->Begin(static_cast<CRITICAL_SECTION*>(section), &OfThread::timed)
                   ? 0
                   : s_sleepForATime(condition, section, timeout);
    }

    // Returns true if the sleep is over because the thread was held in it.
    bool Begin(CRITICAL_SECTION* section, int OfThread::* kind) {
        const DWORD thread = ::GetCurrentThreadId();
        {
            const std::lock_guard lock(m_mutex);
            ++(m_threads[thread].*kind);
        }
        if (thread != m_held) {
            return false;
        }
        ::LeaveCriticalSection(section);
        m_release.Wait();
        ::EnterCriticalSection(section);
        return true;
    }

    static FARPROC WINAPI Find(HMODULE module, LPCSTR name) {
        const FARPROC found = s_find(module, name);
        if (std::strcmp(name, "RtlSleepConditionVariableCS") != 0) {
            return found;
        }
        s_sleepForATime = reinterpret_cast<SleepInTicks>(reinterpret_cast<void*>(found));
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&SleepForATime));
    }

    static inline Sleeps* s_self = nullptr;
    static inline FARPROC(WINAPI* s_find)(HMODULE, LPCSTR) = nullptr;
    static inline std::atomic<SleepInTicks> s_sleepForATime = nullptr;

    std::mutex m_mutex;
    std::map<DWORD, OfThread> m_threads;
    std::atomic<DWORD> m_held = 0;
    Gate m_release;
    const ImportPatch m_endless{LibraryUnderTest(), "SleepConditionVariableCS", &SleepWithoutLimit};
    const ImportPatch m_timed{LibraryUnderTest(), "GetProcAddress", &Find};
};

TEST(FifoMutexSleep, HasNoLimitBehindAnOwner) {
    fifo_mutex mutex;
    Sleeps sleeps;
    mutex.lock();
    QueuedTask first(mutex, [&] { LockAndUnlock(mutex); });
    QueuedTask second(mutex, [&] { LockAndUnlock(mutex); });
    const auto sleepsWithoutLimit = [&](const QueuedTask& task, int times) {
        return Eventually([&] { return sleeps.Of(task).endless >= times; }) && sleeps.Of(task).timed == 0;
    };
    EXPECT_TRUE(sleepsWithoutLimit(first, 1));
    EXPECT_TRUE(sleepsWithoutLimit(second, 1));
    WakeWaitersOf(mutex);
    EXPECT_TRUE(sleepsWithoutLimit(first, 2));
    EXPECT_TRUE(sleepsWithoutLimit(second, 2));
    mutex.unlock();
    first->Join();
    second->Join();
}

TEST(FifoMutexSleep, HasNoLimitOnceTheNextOwnerHasComeIn) {
    fifo_mutex mutex;
    Sleeps sleeps;
    Gate wake;
    Gate leave;
    mutex.lock();
    QueuedTask next(mutex, [&] {
        mutex.lock();
        wake.Wait();
        WakeWaitersOf(mutex);
        leave.Wait();
        mutex.unlock();
    });
    QueuedTask behind(mutex, [&] { LockAndUnlock(mutex); });
    auto sleepsWithoutLimitAgain = [&, before = sleeps.Of(behind).endless]() mutable {
        return Eventually([&] { return sleeps.Of(behind).endless > before; }) &&
               std::exchange(before, sleeps.Of(behind).endless) != 0;
    };
    mutex.unlock();
    EXPECT_TRUE(sleepsWithoutLimitAgain());
    wake.Open();
    EXPECT_TRUE(sleepsWithoutLimitAgain());
    leave.Open();
    behind->Join();
}

// The next owner leaves and wakes nobody. It is held in its sleep until the one behind has looked at the queue, found that
// it is not its turn, and sleeps again.
class FifoMutexHandOverToALeaver : public testing::Test {
  protected:
    void IsServedWhenTheNextOwnerLeaves(const std::function<void()>& wait,
                                        const std::function<void(QueuedTask&)>& end) {
        Sleeps sleeps;
        m_mutex.lock();
        QueuedTask leaver(m_mutex, [&] {
            sleeps.HoldMe();
            wait();
        });
        QueuedTask behind(m_mutex, [&] { LockAndUnlock(m_mutex); });
        m_mutex.unlock();
        EXPECT_TRUE(Eventually([&] { return sleeps.Of(behind).timed > 0; }));
        end(leaver);
        sleeps.Release();
        leaver->Join();
        EXPECT_TRUE(behind->EndedNormally());
        EXPECT_TRUE(IsFreeForOthers(m_mutex));
    }

    fifo_mutex m_mutex;
};

TEST_F(FifoMutexHandOverToALeaver, ServesTheOneBehindAfterATimeOut) {
    FakeWallClock clock;
    IsServedWhenTheNextOwnerLeaves(
        [&, deadline = WallClockNow() + 1h] { EXPECT_FALSE(m_mutex.try_lock_until(deadline)); },
        [&](QueuedTask&) { clock.Advance(2h); });
}

TEST_F(FifoMutexHandOverToALeaver, ServesTheOneBehindAfterACancellation) {
    IsServedWhenTheNextOwnerLeaves([&] { EXPECT_THROW(m_mutex.lock(), CancelRequestedException); },
                                   [](QueuedTask& leaver) { leaver->Cancel(); });
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
TEST(FifoMutex, LetsOthersAtTheQueueThoughTheTimeHasPassed) {
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
