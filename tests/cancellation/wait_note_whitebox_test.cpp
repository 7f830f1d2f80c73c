// What a run notes of its waits, read by another thread.
#include "concurrency/cancellation/wait_note.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/cancellation/sleep_notification_adapter.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using TaskRun = Orvane::Internal::Run;  // Run() is a function of every test, too

WaitState NoteOf(const TaskRun& run) {
    return run.ownNote.Read().value();
}

// Of a run whose thread may be writing just then: kind None while it stands still in the middle of that.
WaitState NoteSoFar(const TaskRun& run) {
    return run.ownNote.Read().value_or(WaitState());
}

// A thread whose run blocks in `wait`.
class BlockedRun {
  public:
    explicit BlockedRun(std::function<void()> wait)
        : m_thread([this, wait = std::move(wait)] {
              const RunScope scope;
              m_run = GetCancellationObject();
              m_begun.Open();
              try {
                  wait();
              } catch (const CancelRequestedException&) {
                  m_wasCancelled = true;
              }
              m_after = NoteOf(*TaskRun::Of(m_run));
          }) {
        m_begun.Wait();
    }

    // The first note that the thread leaves.
    WaitState Note() const {
        WaitState state;
        EXPECT_TRUE(Eventually([&] {
            state = NoteSoFar(*TaskRun::Of(m_run));
            return state.kind != WaitKind::None;
        }));
        return state;
    }
    void Cancel() { m_run->RequestCancel(); }

    // What is noted when the wait is over.
    WaitState End() {
        m_thread.join();
        return m_after;
    }
    bool WasCancelled() const { return m_wasCancelled; }

  private:
    std::shared_ptr<CancellationObject> m_run;
    Gate m_begun;
    bool m_wasCancelled = false;
    WaitState m_after{WaitKind::Sleep, nullptr, 0};
    Thread m_thread;
};

void ExpectNotedWhileItLasts(WaitKind kind, const void* object, const std::function<void()>& wait) {
    BlockedRun run(wait);
    const WaitState during = run.Note();
    run.Cancel();
    const WaitState after = run.End();

    EXPECT_EQ(during.kind, kind);
    EXPECT_EQ(during.object, object);
    EXPECT_NE(during.since, 0u);
    EXPECT_LE(during.since, CoarseClock::Ticks());
    EXPECT_TRUE(run.WasCancelled());
    EXPECT_EQ(after.kind, WaitKind::None);
}

TEST(WaitNote, NamesASleep) {
    ExpectNotedWhileItLasts(WaitKind::Sleep, nullptr, [] { CancellableSleep(INFINITE); });
    ExpectNotedWhileItLasts(WaitKind::Sleep, nullptr, [] {
        const auto adapter = SleepNotificationAdapter::CreateInstance();
        static_cast<SleepNotificationAdapter&>(*adapter).Sleep(INFINITE);
    });
}

TEST(WaitNote, NamesAHandleWaitAndItsHandle) {
    const Event silent;
    ExpectNotedWhileItLasts(WaitKind::Handle, silent.Get(),
                            [&] { CancellableWaitForSingleObject(silent.Get(), INFINITE); });
}

TEST(WaitNote, NamesAWaitForSeveralHandlesAndTheFirst) {
    const Event first;
    const Event second;
    const HANDLE handles[] = {first.Get(), second.Get()};
    ExpectNotedWhileItLasts(WaitKind::Handles, first.Get(),
                            [&] { CancellableWaitForMultipleObjects(2, handles, INFINITE); });
}

TEST(WaitNote, NamesAConditionWaitAndItsCondition) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    ExpectNotedWhileItLasts(WaitKind::Condition, &condition, [&] {
        std::unique_lock lock(mutex);
        for (;;) {
            CancellableConditionWait(mutex, condition, nullptr, [&] { condition.wait(lock); });
        }
    });
    // Whether the wait returns something or not.
    ExpectNotedWhileItLasts(WaitKind::Condition, &condition, [&] {
        std::unique_lock lock(mutex);
        for (;;) {
            CancellableConditionWait(mutex, condition, nullptr, [&] {
                condition.wait(lock);
                return 0;
            });
        }
    });
}

TEST(WaitNote, NamesAFifoMutex) {
    fifo_mutex mutex;
    const std::lock_guard owner(mutex);
    ExpectNotedWhileItLasts(WaitKind::FifoMutex, &mutex, [&] { mutex.lock(); });
}

TEST(WaitNote, NamesAnInterprocessMutexByItsLock) {
    interprocess_mutex mutex;
    mutex.lock();
    BlockedRun run([&] { mutex.lock(); });
    const WaitState during = run.Note();
    run.Cancel();
    run.End();
    mutex.unlock();

    EXPECT_EQ(during.kind, WaitKind::InterprocessMutex);
    EXPECT_NE(during.object, nullptr);
}

TEST(WaitNote, NamesACheckedMutexAlthoughNoRequestWakesIt) {
    checked_mutex mutex;
    mutex.lock();
    BlockedRun run([&] {
        mutex.lock();
        mutex.unlock();
    });
    const WaitState during = run.Note();
    run.Cancel();
    mutex.unlock();
    const WaitState after = run.End();

    EXPECT_EQ(during.kind, WaitKind::CheckedMutex);
    EXPECT_EQ(during.object, &mutex);
    EXPECT_FALSE(run.WasCancelled());
    EXPECT_EQ(after.kind, WaitKind::None);
}

TEST(WaitNote, NamesACheckedMutexThatIsWaitedForUntilATime) {
    checked_mutex mutex;
    mutex.lock();
    BlockedRun run([&] {
        EXPECT_TRUE(mutex.timed_lock((TimePoint::max)()));
        mutex.unlock();
    });
    const WaitState during = run.Note();
    mutex.unlock();
    const WaitState after = run.End();

    EXPECT_EQ(during.kind, WaitKind::CheckedMutex);
    EXPECT_EQ(during.object, &mutex);
    EXPECT_EQ(after.kind, WaitKind::None);
}

TEST(WaitNote, NamesAWaitForAnotherTaskAndItsFuture) {
    FutureImpl<void> awaited;
    awaited.MarkAsAttachedToTask();
    awaited.Start();
    BlockedRun run([&] { awaited.Wait(); });
    const WaitState during = run.Note();
    awaited.SetValue();
    const WaitState after = run.End();

    EXPECT_EQ(during.kind, WaitKind::Task);
    EXPECT_EQ(during.object, static_cast<const IFutureState*>(&awaited));
    EXPECT_EQ(after.kind, WaitKind::None);
}

TEST(WaitNote, InnerNoteBringsTheOuterOneBack) {
    const RunScope scope;
    const WaitingRun waiting = CurrentRun();
    const TaskRun& run = *TaskRun::Of(waiting.Get());
    const int outer = 0;
    const int inner = 0;

    const WaitingRun::Note outerNote(waiting, WaitKind::Condition, &outer);
    const WaitState before = NoteOf(run);
    {
        const WaitingRun::Note innerNote(waiting, WaitKind::Handle, &inner);
        EXPECT_EQ(NoteOf(run).kind, WaitKind::Handle);
        EXPECT_EQ(NoteOf(run).object, &inner);
    }

    EXPECT_EQ(NoteOf(run).kind, WaitKind::Condition);
    EXPECT_EQ(NoteOf(run).object, &outer);
    EXPECT_EQ(NoteOf(run).since, before.since);
}

// A scope inside a run has a run of its own, which nobody lists.
TEST(WaitNote, OfAPartOfARunIsWrittenWhereTheWholeRunHasIts) {
    const RunScope whole;
    const TaskRun& wholeRun = *TaskRun::Of(GetCancellationObject());
    const RunScope part;
    TaskRun& partRun = *TaskRun::Of(GetCancellationObject());
    partRun.note = wholeRun.note;

    const WaitingRun::Note note(CurrentRun(), WaitKind::Sleep, nullptr);

    EXPECT_EQ(NoteOf(wholeRun).kind, WaitKind::Sleep);
    EXPECT_EQ(NoteOf(partRun).kind, WaitKind::None);
}

// As when one task runs on two threads: only the run's own thread writes.
TEST(WaitNote, IsNotWrittenByAnotherThreadThatWaitsInTheRun) {
    const RunScope scope;
    const WaitingRun waiting = CurrentRun();
    Thread([&] {
        const WaitingRun::Note note(waiting, WaitKind::Sleep, nullptr);
        EXPECT_EQ(NoteOf(*TaskRun::Of(waiting.Get())).kind, WaitKind::None);
    }).join();
}

TEST(WaitNote, OfAFutureWithItsOwnCancellationObjectIsNowhere) {
    struct OtherRun : FutureImpl<void> {
        std::shared_ptr<CancellationObject> other{new CancellationObject()};
        std::shared_ptr<CancellationObject> GetCancellationObject() override { return other; }
    };
    const RunScopeOf<OtherRun> scope;

    EXPECT_EQ(TaskRun::Of(GetCancellationObject()), nullptr);
    CancellableSleep(0);
}

// The two belong together: a reader never sees one wait's object with another's kind.
TEST(WaitNote, IsReadAsItWasWritten) {
    WaitNote note;
    std::atomic<int> reads = 0;
    Thread reader([&] {
        for (; reads < 1'000'000; ++reads) {
            if (const std::optional<WaitState> state = note.Read()) {
                EXPECT_EQ(reinterpret_cast<std::uintptr_t>(state->object), state->since);
                EXPECT_EQ(static_cast<std::uint64_t>(state->kind), state->since % 8);
            }
        }
    });
    for (std::uint64_t i = 0; reads < 1'000'000; ++i) {
        note.Exchange({static_cast<WaitKind>(i % 8), reinterpret_cast<const void*>(i), i});
    }
    reader.join();
}

TEST(Run, KnowsSinceWhenItIsAsked) {
    const RunScope scope;
    const TaskRun& run = *TaskRun::Of(GetCancellationObject());
    EXPECT_EQ(run.askedAt, 0u);
    EXPECT_NE(run.startedAt, 0u);

    Thread([&] { scope.GetFuture()->RequestCancel(); }).join();
    const std::uint64_t first = run.askedAt;
    Thread([&] { scope.GetFuture()->RequestCancel(); }).join();

    EXPECT_GE(first, run.startedAt);
    EXPECT_EQ(run.askedAt, first);
}

}  // namespace
