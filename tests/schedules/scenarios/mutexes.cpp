// The mutexes of the library.

#include <chrono>

#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::checked_mutex;
using Orvane::fifo_mutex;
using Orvane::interprocess_mutex;
using Schedules::Check;
using Schedules::Party;
using Schedules::TaskParty;

// What a mutex guards: who is in, and how often one was.
struct Room {
    int inside = 0;
    int visits = 0;

    void Visit() {
        Check(++inside == 1, "one at a time");
        std::this_thread::yield();
        ++visits;
        --inside;
    }
};

template <typename Mutex>
void VisitsOneAtATime(int parties) {
    Mutex mutex;
    Room room;
    const auto visit = [&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    };
    {
        std::vector<std::unique_ptr<Party>> others;
        for (int i = 1; i < parties; ++i) {
            others.push_back(std::make_unique<Party>(visit));
        }
        visit();
    }
    Check(room.visits == parties, "each has been in");
    Check(Schedules::Now() == 0, "no hand-over waits for a time-out");
}

Orvane::TimePoint In(std::chrono::milliseconds delay) {
    return std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now()) + delay;
}

}  // namespace

SCENARIO(FifoMutexIsHandedOverBetweenTwo) {
    VisitsOneAtATime<fifo_mutex>(2);
}

SCENARIO(FifoMutexIsHandedOverBetweenThree) {
    VisitsOneAtATime<fifo_mutex>(3);
}

SCENARIO(CheckedMutexOfTwo) {
    VisitsOneAtATime<checked_mutex>(2);
}

SCENARIO(CheckedMutexOfThree) {
    VisitsOneAtATime<checked_mutex>(3);
}

SCENARIO(InterprocessMutexOfTwo) {
    const Orvane::ConcurrencyLifetime lifetime;
    VisitsOneAtATime<interprocess_mutex>(2);
}

SCENARIO(FifoMutexTimesOutAtItsTurn, {.patience = 20 * Schedules::kMillisecond}) {
    fifo_mutex mutex;
    Room room;
    Party timed([&] {
        if (mutex.try_lock_until(In(std::chrono::milliseconds(10)))) {
            room.Visit();
            mutex.unlock();
        }
    });
    Party waiter([&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    });
    mutex.lock();
    room.Visit();
    mutex.unlock();
    waiter.Join();
    timed.Join();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

SCENARIO(FifoMutexIsCancelledAtItsTurn) {
    const Orvane::ConcurrencyLifetime lifetime;
    fifo_mutex mutex;
    Room room;
    const auto visit = [&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    };
    mutex.lock();
    TaskParty cancelled(visit);
    Party waiter(visit);
    Party requester([&] { cancelled.Cancel(); });
    mutex.unlock();
    requester.Join();
    waiter.Join();
    cancelled.Join();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

SCENARIO(FifoMutexIsTriedAgainstAHandOver) {
    fifo_mutex mutex;
    Room room;
    Party other([&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    });
    if (mutex.try_lock()) {
        room.Visit();
        mutex.lock();
        mutex.unlock();
        mutex.unlock();
    }
    other.Join();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

SCENARIO(FifoMutexIsTriedWhileItsListBecomesEmpty) {
    fifo_mutex mutex;
    Room room;
    const auto visit = [&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    };
    Party first(visit);
    Party second(visit);
    if (mutex.try_lock()) {
        room.Visit();
        mutex.unlock();
    }
    first.Join();
    second.Join();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

// A waiter that looks again by itself may be in, and gone with the mutex, before the one ahead of it wakes anybody.
SCENARIO(FifoMutexIsDestroyedByItsLastOwner, {.patience = 200 * Schedules::kMillisecond}) {
    auto mutex = std::make_unique<fifo_mutex>();
    int visits = 0;
    const auto visit = [&] {
        mutex->lock();
        const bool isLast = ++visits == 3;
        mutex->unlock();
        if (isLast) {
            mutex.reset();
        }
    };
    Party first(visit);
    Party second(visit);
    visit();
}

SCENARIO(FifoMutexIsDestroyedByTheNextOwner) {
    auto mutex = std::make_unique<fifo_mutex>();
    mutex->lock();
    Party next([&] {
        mutex->lock();
        mutex->unlock();
        mutex.reset();
    });
    mutex->unlock();
}

SCENARIO(CheckedMutexTimesOutAgainstAnUnlock, {.patience = 20 * Schedules::kMillisecond}) {
    checked_mutex mutex;
    Room room;
    Party timed([&] {
        if (mutex.timed_lock(In(std::chrono::milliseconds(10)))) {
            room.Visit();
            mutex.unlock();
        }
    });
    Party waiter([&] {
        mutex.lock();
        room.Visit();
        mutex.unlock();
    });
    mutex.lock();
    room.Visit();
    mutex.unlock();
    timed.Join();
    waiter.Join();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

SCENARIO(InterprocessMutexIsCancelledWhileItIsHeld) {
    const Orvane::ConcurrencyLifetime lifetime;
    interprocess_mutex mutex;
    mutex.lock();
    TaskParty waiter([&] {
        mutex.lock();
        mutex.unlock();
    });
    waiter.Cancel();
    mutex.unlock();
    waiter.Join();
    mutex.lock();
    mutex.unlock();
}

// Each object stands for one process: it has a handle of its own to the kernel's mutex of that name. What the stand-in does not
// have is an end of one of the processes; to the mutex that is the end of the thread that owns it, as below.
SCENARIO(NamedMutexOfTwoProcesses) {
    const Orvane::ConcurrencyLifetime lifetime;
    Room room;
    const auto process = [&room] {
        interprocess_mutex mutex(L"Schedules");
        mutex.lock();
        room.Visit();
        mutex.unlock();
    };
    Party other(process);
    process();
    other.Join();
    Check(room.visits == 2, "each has been in");
}

SCENARIO(NamedMutexIsAbandonedWhileAnotherProcessWaits) {
    const Orvane::ConcurrencyLifetime lifetime;
    interprocess_mutex mutex(L"Schedules");
    bool wasIn = false;
    Party ending([&wasIn] {
        interprocess_mutex own(L"Schedules");
        own.lock();
        wasIn = true;
    });
    bool isAbandoned = false;
    try {
        mutex.lock();
    } catch (const Orvane::LockException&) {
        isAbandoned = true;
    }
    Check(isAbandoned == wasIn, "who comes after an owner that has ended is told, and no one else");
    mutex.unlock();
    ending.Join();
}

// A request for a thread that has left the queue may still use the mutex's parts when the mutex is gone.
SCENARIO(FifoMutexIsDestroyedWhileAFormerWaiterIsAsked) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto mutex = std::make_unique<fifo_mutex>();
    mutex->lock();
    TaskParty waiter([&] {
        mutex->lock();
        mutex->unlock();
        mutex.reset();
    });
    Party requester([&] { waiter.Cancel(); });
    mutex->unlock();
    waiter.Join();
    requester.Join();
}
