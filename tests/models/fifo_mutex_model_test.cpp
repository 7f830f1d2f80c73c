// A fifo_mutex serves its waiters in the order of their arrival, whatever they do: each of four threads locks it, waits for it,
// is cancelled, times out or gives it back, one step after the other.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/task_wrapper.h"
#include "tests/models/acting_thread.h"
#include "tests/models/sequences.h"
#include "tests/scheduler/moments.h"
#include "tests/sync/queued_task.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;
using namespace Orvane::Internal;

constexpr int kActors = 4;

// The number says which thread.
enum class FifoOp { Lock, TryLock, TryLockUntilThePast, Unlock, Cancel, Count };

const char* NameOf(FifoOp op) {
    constexpr const char* kNames[] = {"Lock", "TryLock", "TryLockUntilThePast", "Unlock", "Cancel"};
    return kNames[static_cast<int>(op)];
}

// One who may wait, in a run that can be cancelled.
struct Actor {
    ActingThread thread;
    std::shared_ptr<FutureImpl<void>> run;
    std::atomic<int> levels = 0;  // that it really has
};

class FifoScene {
  public:
    explicit FifoScene(std::array<Actor, kActors>& actors) : m_actors(actors) {}
    // Whoever waits leaves, and whoever owns gives it back, also if that is not whom the model thinks of.
    ~FifoScene() {
        for (Actor& actor : m_actors) {
            if (!actor.thread.IsIdle()) {
                actor.run->RequestCancel();
            }
        }
        for (Actor& actor : m_actors) {
            if (!actor.thread.Ends()) {
                std::abort();  // it would use the mutex after its end
            }
            for (; actor.levels != 0; --actor.levels) {
                actor.thread.Do([this] { m_mutex.unlock(); });
            }
        }
    }
    FifoScene(const FifoScene&) = delete;
    FifoScene& operator=(const FifoScene&) = delete;

    void Do(FifoOp op, int actor) {
        if (op == FifoOp::Cancel) {
            Cancel(actor);
        } else if (IsWaiting(actor)) {
            return;
        } else if (op == FifoOp::Lock) {
            Lock(actor);
        } else if (op == FifoOp::TryLock) {
            Try(actor, [this] { return m_mutex.try_lock(); });
        } else if (op == FifoOp::TryLockUntilThePast) {
            Try(actor, [this] { return m_mutex.try_lock_until(k1970); });
        } else if (m_owner == actor) {
            Unlock(actor);
        }
        for (int other = 0; other < kActors; ++other) {
            RC_ASSERT(m_actors[static_cast<std::size_t>(other)].thread.IsIdle() == !IsWaiting(other));
        }
    }

  private:
    Actor& Of(int actor) { return m_actors[static_cast<std::size_t>(actor)]; }

    bool IsWaiting(int actor) const { return std::find(m_line.begin(), m_line.end(), actor) != m_line.end(); }

    bool IsFreeFor(int actor) const { return !m_owner || m_owner == actor; }

    void Own(int actor) {
        m_owner = actor;
        ++m_levels;
    }

    void Try(int actor, const std::function<bool()>& tryIt) {
        bool isTaken = false;
        Of(actor).thread.Do([&] { isTaken = tryIt(); });
        Of(actor).levels += isTaken ? 1 : 0;
        RC_ASSERT(isTaken == IsFreeFor(actor));
        if (isTaken) {
            Own(actor);
        }
    }

    void Lock(int actor) {
        const NextRegistration registration;
        Of(actor).run.reset(new FutureImpl<void>());
        Of(actor).thread.Begin([this, actor, registration, run = Of(actor).run] {
            const auto lock = [this, registration, &levels = Of(actor).levels] {
                registration.Await();
                m_mutex.lock();
                ++levels;
            };
            TaskWrapper<void, decltype(lock)>(lock, run)();
        });
        if (IsFreeFor(actor)) {
            RC_ASSERT(Of(actor).thread.Ends());
            RC_ASSERT(Of(actor).run->IsNormal());
            Own(actor);
        } else {
            m_line.push_back(actor);
            // It has its place when it registers.
            RC_ASSERT(SoonHolds([&] { return registration.HasCome() || Of(actor).thread.IsIdle(); }));
        }
    }

    void Cancel(int actor) {
        if (!IsWaiting(actor)) {
            return;
        }
        Of(actor).run->RequestCancel();
        RC_ASSERT(Of(actor).thread.Ends());
        RC_ASSERT(Of(actor).run->IsCancelled());
        std::erase(m_line, actor);
    }

    void Unlock(int actor) {
        --Of(actor).levels;
        Of(actor).thread.Do([this] { m_mutex.unlock(); });
        if (--m_levels != 0) {
            return;
        }
        m_owner.reset();
        if (!m_line.empty()) {
            const int next = m_line.front();
            m_line.pop_front();
            RC_ASSERT(Of(next).thread.Ends());
            RC_ASSERT(Of(next).run->IsNormal());
            Own(next);
        }
    }

    std::array<Actor, kActors>& m_actors;
    fifo_mutex m_mutex;

    std::optional<int> m_owner;
    int m_levels = 0;
    std::deque<int> m_line;
};

TEST(FifoMutexModel, ServesItsWaitersInTheirOrder) {
    std::array<Actor, kActors> actors;
    CheckSequences<FifoOp>(kActors, [&](const Steps<FifoOp>& steps) {
        FifoScene scene(actors);
        for (const auto& [op, actor] : steps) {
            scene.Do(op, actor);
        }
    });
}

}  // namespace
}  // namespace Zarvo::Test
