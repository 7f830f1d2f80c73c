// Requests for jobs that are in each kind of wait, that come to it, or that leave it.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/jobs/own_event.h"
#include "tests/soak/soak_work.h"

namespace Zarvo::Test {

namespace {

using namespace std::chrono_literals;

// What the jobs wait for, and do not get before the requests have come. Its thread owns the mutexes.
class Blocked {
  public:
    Blocked() : m_group(L"blocked group", 1) {
        const auto waitForEvent = [this] { Orvane::CancellableWaitForSingleObject(m_never.Get(), INFINITE); };
        // On threads of their own: a pool that must grow holds up all the others for a quarter of a second.
        m_job = Orvane::RunInNewThread(L"blocked", waitForEvent);
        m_other = Orvane::RunInNewThread(L"blocked too", waitForEvent);
        m_group.RunInNewThread(L"blocked in a group", waitForEvent);
        m_fifo.lock();
        m_interprocess.lock();
    }
    ~Blocked() {
        m_fifo.unlock();
        m_interprocess.unlock();
    }
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

    // Asks the jobs that the others waited for, and waits until they have left.
    void Drop() {
        m_job = {};
        m_other = {};
        m_group.Cancel();
        static_cast<void>(m_group.Leave());
    }

    // Lets the waiters have a turn or two.
    void PassTheLocksOn() {
        m_fifo.unlock();
        m_interprocess.unlock();
        m_fifo.lock();
        m_interprocess.lock();
    }

    void WaitIn(SoakWait wait) {
        switch (wait) {
            case SoakWait::Sleep: Orvane::CancellableSleep(INFINITE); break;
            case SoakWait::Handle: Orvane::CancellableWaitForSingleObject(m_never.Get(), INFINITE); break;
            case SoakWait::Handles: {
                const std::array<HANDLE, 3> handles{m_never.Get(), m_never.Get(), m_never.Get()};
                Orvane::CancellableWaitForMultipleObjects(3, handles.data(), INFINITE);
                break;
            }
            case SoakWait::FifoMutex:
                m_fifo.lock();
                m_fifo.unlock();
                break;
            case SoakWait::FifoMutexTimed:
                if (m_fifo.try_lock_for(1h)) {
                    m_fifo.unlock();
                }
                break;
            case SoakWait::InterprocessMutex:
                m_interprocess.lock();
                m_interprocess.unlock();
                break;
            case SoakWait::Condition: {
                const auto state = std::make_shared<std::pair<std::mutex, std::condition_variable_any>>();
                std::unique_lock lock(state->first);
                Orvane::Internal::CancellableConditionWait(state->first, state->second, state,
                                                           [&] { state->second.wait(lock); });
                break;
            }
            case SoakWait::Job: m_job.Wait(); break;
            case SoakWait::JobTimed: static_cast<void>(m_job.WaitFor(1h)); break;
            case SoakWait::AnyJob: Orvane::WhenAny(m_job, m_other); break;
            case SoakWait::Group: m_group.Wait(); break;
            default: {
                std::vector<int> items(3);
                Orvane::ForEach(L"each", items, [](int&) { Orvane::CancellableSleep(INFINITE); });
                break;
            }
        }
        Orvane::CancellationPoint();
    }

  private:
    OwnEvent m_never;
    Orvane::Job<void> m_job;
    Orvane::Job<void> m_other;
    Orvane::JobGroup m_group;
    Orvane::fifo_mutex m_fifo;
    Orvane::interprocess_mutex m_interprocess;
};

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

struct Waiter {
    SoakWait wait = SoakWait::Sleep;
    std::atomic<bool> isInside = false;
    std::atomic<std::size_t> watched = kNone;
    std::atomic<std::int64_t> asked = 0;
    Orvane::Job<void> job;

    void EndWatch(SoakWatch& watch) {
        if (const std::size_t mine = watched.exchange(kNone); mine != kNone) {
            watch.End(mine);
        }
    }
};

void Start(SoakScene& scene, Blocked& blocked, const Stopwatch& clock, Waiter& waiter) {
    waiter.wait = static_cast<SoakWait>(Choose(scene.random, kSoakWaits));
    waiter.job = Orvane::Run(L"waits", [&scene, &blocked, &clock, &waiter] {
        ++scene.tally.jobs;
        waiter.isInside = true;
        try {
            for (;;) {
                blocked.WaitIn(waiter.wait);
            }
        } catch (const Orvane::CancelRequestedException&) {
            const auto woken = clock.Elapsed();
            scene.tally.cancelToWake[static_cast<std::size_t>(waiter.wait)].Add(
                woken - std::chrono::nanoseconds(waiter.asked.load()));
            waiter.EndWatch(scene.watch);
            throw;
        }
    });
}

void Ask(SoakScene& scene, const Stopwatch& clock, Waiter& waiter) {
    const std::size_t wait = scene.watch.Begin(kSoakWaitNames[static_cast<std::size_t>(waiter.wait)]);
    waiter.watched = wait;
    waiter.asked = clock.Elapsed().count();
    if (!g_losesAWakeUp) {
        waiter.job.Cancel();
    }
    ++scene.tally.cancels;
}

}  // namespace

void SoakCancels(SoakScene scene) {
    const Stopwatch clock;
    Blocked blocked;
    while (!scene.isOver) {
        std::list<Waiter> waiters;
        std::vector<Waiter*> order;
        for (int i = 0; i < 6; ++i) {
            Start(scene, blocked, clock, waiters.emplace_back());
            order.push_back(&waiters.back());
        }
        if (Choose(scene.random, 2) == 0) {
            // Most sleep already then; otherwise most are on their way.
            const SoakWatch::Wait wait(scene.watch, "the begin of a job that waits");
            for (const Waiter& waiter : waiters) {
                while (!waiter.isInside) {
                    Sleep(0);
                }
            }
        }
        if (Choose(scene.random, 2) == 0) {
            const SoakWatch::Wait wait(scene.watch, "a lock that was passed on");
            blocked.PassTheLocksOn();
        }
        std::shuffle(order.begin(), order.end(), scene.random);
        for (Waiter* const waiter : order) {
            if (Choose(scene.random, 4) == 0) {
                Linger(scene.random);
            }
            Ask(scene, clock, *waiter);
        }
        for (Waiter& waiter : waiters) {
            waiter.job.Wait();
            waiter.EndWatch(scene.watch);  // of one that was asked before it began
        }
    }
    const SoakWatch::Wait wait(scene.watch, "the end of jobs that others waited for");
    blocked.Drop();
}

}  // namespace Zarvo::Test
