// CancelWhen() where it is misused, or the platform refuses something; and how long its thread stays.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "tests/faults/every_allocation.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/own_event.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

class NoEvents {
  private:
    static HANDLE WINAPI Fail(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    }
    ImportPatch m_patch{LibraryUnderTest(), "CreateEventW", &Fail};
};

class JobHandleWatchFault : public JobTest {};

TEST_F(JobHandleWatchFault, RefusesAMutexAndLeavesItAsItIs) {
    auto job = RunSleeper();
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    EXPECT_THROW(job.CancelWhen(mutex), std::invalid_argument);
    DWORD result = WAIT_FAILED;
    PlainThread([&] {
        result = WaitForSingleObject(mutex, 0);
        ReleaseMutex(mutex);
    }).Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);  // it is free

    WaitForSingleObject(mutex, 0);
    EXPECT_THROW(job.CancelWhen(mutex), std::invalid_argument);
    PlainThread([&] {
        result = WaitForSingleObject(mutex, 0);
        EXPECT_THROW(job.CancelWhen(mutex), std::invalid_argument);
    }).Join();
    EXPECT_EQ(result, static_cast<DWORD>(WAIT_TIMEOUT));  // it is this thread's
    EXPECT_NE(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);  // once
    CloseHandle(mutex);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
}

TEST_F(JobHandleWatchFault, OfNoHandleIsAnError) {
    auto job = RunSleeper();
    EXPECT_THROW(job.CancelWhen(nullptr), std::system_error);
    const auto none =
        reinterpret_cast<HANDLE>(std::intptr_t{0x7FFF'FFF0});  // a closed one may be another thread's again
    EXPECT_THROW(job.CancelWhen(none), std::system_error);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_THROW(Job<void>().CancelWhen(none), std::logic_error);
}

TEST_F(JobHandleWatchFault, WhoseThreadCannotBeStartedIsAnErrorAndIsNotWatched) {
    const OwnEvent event;
    auto job = RunSleeper();
    {
        ThreadStarts starts;
        starts.FailAt(1);
        EXPECT_THROW(job.CancelWhen(event.Get()), std::system_error);
    }
    event.Set();
    Sleep(20);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    job.CancelWhen(event.Get());
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST_F(JobHandleWatchFault, WithoutAnEventForItsThreadIsAnError) {
    const OwnEvent event;
    auto job = RunSleeper();
    {
        const NoEvents none;
        EXPECT_THROW(job.CancelWhen(event.Get()), std::system_error);
    }
    job.CancelWhen(event.Get());
    event.Set();
    EXPECT_THROW(job.Get(), CancelledException);
}

// The platform's calls of the thread that watches handles, changed for a scope.
class WatchCalls {
  public:
    WatchCalls() {
        s_bad = nullptr;
        s_signalledByFailure = nullptr;
    }

    // The copy that the library makes of the next handle can be waited for once, and no more.
    void SpoilNext() { s_spoilsNext = true; }

    // The next wait for handles fails, and sets the event.
    void FailOnce(HANDLE event = nullptr) {
        s_signalledByFailure = event;
        s_failsOnce = true;
    }

    // How long the thread stays without a handle: not at all, or for ever.
    void EndIdleWaits() { s_timeWithoutHandle = 0; }
    void ProlongIdleWaits() { s_timeWithoutHandle = INFINITE; }

  private:
    static BOOL WINAPI Copy(HANDLE from, HANDLE handle, HANDLE to, HANDLE* copy, DWORD access, BOOL inherit,
                            DWORD options) {
        const BOOL result = DuplicateHandle(from, handle, to, copy, access, inherit, options);
        if (s_spoilsNext.exchange(false)) {
            s_looks = 0;
            s_bad = *copy;
        }
        return result;
    }
    static DWORD Refuse() {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    static DWORD WINAPI WaitForOne(HANDLE handle, DWORD time) {
        return handle == s_bad && s_looks++ != 0 ? Refuse() : WaitForSingleObject(handle, time);
    }
    static DWORD WINAPI WaitForSeveral(DWORD count, const HANDLE* handles, BOOL all, DWORD time) {
        if (s_bad != nullptr && std::find(handles, handles + count, s_bad.load()) != handles + count) {
            return Refuse();
        }
        if (count > 1 && s_failsOnce.exchange(false)) {
            SetEvent(s_signalledByFailure);
            return Refuse();
        }
        return WaitForMultipleObjects(count, handles, all, count > 1 ? time : s_timeWithoutHandle.load());
    }

    static inline std::atomic<HANDLE> s_bad = nullptr;
    static inline std::atomic<int> s_looks = 0;
    static inline std::atomic<bool> s_spoilsNext = false;
    static inline std::atomic<bool> s_failsOnce = false;
    static inline std::atomic<HANDLE> s_signalledByFailure = nullptr;
    static inline std::atomic<DWORD> s_timeWithoutHandle = INFINITE;

    const ImportPatch m_copy{LibraryUnderTest(), "DuplicateHandle", &Copy};
    const ImportPatch m_one{LibraryUnderTest(), "WaitForSingleObject", &WaitForOne};
    const ImportPatch m_several{LibraryUnderTest(), "WaitForMultipleObjects", &WaitForSeveral};
};

constexpr const wchar_t* kRefused = L"CancelWhen watches a handle no longer, error code %x";
constexpr const wchar_t* kFailed = L"CancelWhen: a wait for %d handles has failed, error code %x";

TEST_F(JobHandleWatchFault, ThatTheWaitRefusesIsWatchedNoLongerAndTheOthersAre) {
    const RecordedReports reports;
    WatchCalls calls;
    const OwnEvent bad;
    const OwnEvent good;
    auto first = RunSleeper();
    auto second = RunSleeper();
    second.CancelWhen(good.Get());
    calls.SpoilNext();
    first.CancelWhen(bad.Get());
    EXPECT_TRUE(reports.WaitFor(L"Concurrency.Job", kRefused));
    good.Set();
    EXPECT_TRUE(Eventually([&second] { return second.IsReady(); }));
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(reports.Count(L"Concurrency.Job", kRefused), 1U);
    EXPECT_EQ(reports.Count(L"Concurrency.Job", kFailed), 0U);
}

TEST_F(JobHandleWatchFault, GoesOnAfterAWaitThatHasFailedWithoutABadHandle) {
    const RecordedReports reports;
    WatchCalls calls;
    const OwnEvent event;
    auto job = RunSleeper();
    calls.FailOnce();
    job.CancelWhen(event.Get());
    EXPECT_TRUE(reports.WaitFor(L"Concurrency.Job", kFailed));
    event.Set();
    EXPECT_TRUE(Eventually([&job] { return job.IsReady(); }));
    EXPECT_EQ(reports.Count(L"Concurrency.Job", kFailed), 1U);
}

// To look at the handle takes the signal.
TEST_F(JobHandleWatchFault, ThatIsSignalledWhenTheWaitFailsCounts) {
    WatchCalls calls;
    const OwnEvent event(OwnEvent::Kind::AutoReset);
    const OwnEvent other;
    auto first = RunSleeper();
    auto second = RunSleeper();
    first.CancelWhen(event.Get());
    calls.FailOnce(event.Get());
    second.CancelWhen(other.Get());
    EXPECT_TRUE(Eventually([&first] { return first.IsReady(); }));
    EXPECT_FALSE(second.IsReady());
}

// A job that leaves by CancelWhen(), and how often a thread was started for that.
class WatchStarts {
  public:
    WatchStarts() {
        m_starts.Before([this](int) { m_count += GetCurrentThreadId() == m_watching ? 1 : 0; });
    }

    int CountAfterAJob() {
        const OwnEvent event;
        auto job = RunSleeper();
        m_watching = GetCurrentThreadId();
        job.CancelWhen(event.Get());
        m_watching = 0;
        event.Set();
        EXPECT_THROW(job.Get(), CancelledException);
        return m_count;
    }

  private:
    std::atomic<DWORD> m_watching = 0;  // the thread that is in CancelWhen()
    std::atomic<int> m_count = 0;
    ThreadStarts m_starts;
};

TEST_F(JobHandleWatchFault, ThreadStaysAWhileForTheNextHandle) {
    WatchCalls calls;
    calls.ProlongIdleWaits();
    WatchStarts starts;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(starts.CountAfterAJob(), 1);
    }
}

TEST_F(JobHandleWatchFault, ThreadLeavesWhenItHasHadNoHandleForAWhile) {
    WatchCalls calls;
    calls.EndIdleWaits();
    WatchStarts starts;
    EXPECT_TRUE(Eventually([&starts] { return starts.CountAfterAJob() > 1; }));
}

TEST_F(JobHandleWatchFault, WithoutMemoryIsNotWatched) {
    const OwnEvent event;
    const OwnEvent keeps;
    auto keeper = RunSleeper();
    keeper.CancelWhen(keeps.Get());
    EXPECT_GT(ForEveryAllocation([&event](Attempt& attempt) {
                  ResetEvent(event.Get());
                  auto job = RunSleeper();
                  if (!attempt.Succeeds([&] { job.CancelWhen(event.Get()); })) {
                      EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
                      job.CancelWhen(event.Get());
                  }
                  event.Set();
                  EXPECT_THROW(job.Get(), CancelledException);
              }),
              0);
}

}  // namespace
